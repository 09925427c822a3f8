// msgstore/props/property_object.h: IMAPIProp's methods, once for every object that has properties.
//
// An object (message, attachment, folder, store, profile section) derives from MapiProp, says through the
// hooks of PropertyObject where its properties are, and has all methods of IMAPIProp but SaveChanges.
#ifndef QUORVANE_MSGSTORE_PROPS_PROPERTY_OBJECT_H_
#define QUORVANE_MSGSTORE_PROPS_PROPERTY_OBJECT_H_

#include <mutex>
#include <vector>

#include "msgstore/props/property_bag.h"
#include "msgstore/props/property_names.h"
#include "platform/com/com_object.h"

namespace quorvane {

class SpoolValue;

// The properties that a copy never carries, as they are its target's own: identifiers, access, sizes,
// PR_LAST_MODIFICATION_TIME.
bool IsOwnProperty(ULONG id) noexcept;

// The algorithms of IMAPIProp over hooks. Methods have the published signatures and may be called from
// any thread; they take Lock() and call the hooks under it. CopyTo and CopyProps don't hold it.
class PropertyObject {
public:
    [[nodiscard]] HRESULT DoGetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                     LPSPropValue* values) noexcept;
    [[nodiscard]] HRESULT DoGetPropList(ULONG flags, LPSPropTagArray* tags) noexcept;
    [[nodiscard]] HRESULT DoOpenProperty(ULONG tag, LPCIID iid, ULONG interfaceOptions, ULONG flags,
                                         LPUNKNOWN* object) noexcept;
    [[nodiscard]] HRESULT DoSetProps(ULONG count, LPSPropValue values,
                                     LPSPropProblemArray* problems) noexcept;
    [[nodiscard]] HRESULT DoDeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) noexcept;
    [[nodiscard]] HRESULT DoCopyTo(IMAPIProp* self, ULONG excludedCount, LPCIID excludedInterfaces,
                                   LPSPropTagArray excludedTags, LPCIID targetInterface, LPVOID target,
                                   ULONG flags, LPSPropProblemArray* problems) noexcept;
    [[nodiscard]] HRESULT DoCopyProps(IMAPIProp* self, LPSPropTagArray includedTags, LPCIID targetInterface,
                                      LPVOID target, ULONG flags, LPSPropProblemArray* problems) noexcept;
    [[nodiscard]] HRESULT DoGetNamesFromIDs(LPSPropTagArray* tags, LPGUID propertySet, ULONG flags,
                                            ULONG* count, LPMAPINAMEID** names) noexcept;
    [[nodiscard]] HRESULT DoGetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                            LPSPropTagArray* tags) noexcept;

protected:
    ~PropertyObject() = default;

    // The object itself, for what has to keep it alive.
    virtual IUnknown* Unknown() noexcept = 0;
    virtual std::recursive_mutex& Lock() noexcept = 0;
    virtual PropertyNames& Names() noexcept = 0;
    virtual const MapiAllocator& Allocator() noexcept;

    // The stored properties, loaded at the first use; the pointer holds while the object lives.
    [[nodiscard]] virtual HRESULT Stored(PropertyBag*& bag) noexcept = 0;

    // Appends the tags of the properties that the object makes itself and lists; they hide stored ones.
    // May throw std::bad_alloc.
    virtual void ListComputed(std::vector<ULONG>& tags) = 0;
    // One of them. MAPI_E_NOT_FOUND: it isn't one, or has no value now. May throw std::bad_alloc.
    [[nodiscard]] virtual HRESULT Compute(ULONG id, PropertyValue& value) = 0;

    // Whether Compute answers this one without the stored properties, so that nobody needs to load them for
    // it. May throw std::bad_alloc.
    virtual bool IsKnownUnloaded(ULONG id);

    // S_OK, or E_ACCESSDENIED for an object that's open for reading alone.
    [[nodiscard]] virtual HRESULT CheckWritable() noexcept = 0;
    // S_OK, or MAPI_E_COMPUTED for a property that callers can't set or delete.
    [[nodiscard]] virtual HRESULT CheckSettable(ULONG id) noexcept = 0;
    // A stored property was set, deleted or written to through a stream; the lock is held. May throw.
    virtual void Changed(ULONG id) = 0;

    // OpenProperty for a PT_OBJECT tag. The default knows none: MAPI_E_NO_SUPPORT.
    [[nodiscard]] virtual HRESULT OpenObject(ULONG tag, REFIID iid, ULONG interfaceOptions, ULONG flags,
                                             LPUNKNOWN* object) noexcept;
    // Deletes an object that isn't among the stored properties; false if there's none. The default has none.
    virtual bool DropObject(ULONG id);
    // CopyTo/CopyProps of a PT_OBJECT property; the lock isn't held. The default leaves it out: S_OK.
    [[nodiscard]] virtual HRESULT CopyObject(ULONG tag, IMAPIProp& target, ULONG flags) noexcept;

private:
    friend class CPropertyStream;

    // bag  [in]  the stored properties; null: they are loaded if need be.
    [[nodiscard]] HRESULT Lookup(ULONG tag, PropertyBag* bag, PropertyValue& place,
                                 const PropertyValue*& value);
    [[nodiscard]] HRESULT AllTags(ULONG flags, std::vector<ULONG>& tags);
    [[nodiscard]] HRESULT GiveProps(const std::vector<ULONG>& tags, ULONG flags, ULONG* count,
                                    LPSPropValue* values);
    [[nodiscard]] HRESULT GiveOne(ULONG tag, ULONG flags, PropertyBag* bag, void* root, SPropValue& result);
    [[nodiscard]] HRESULT CopyListed(IMAPIProp* self, const std::vector<ULONG>& tags, IMAPIProp& target,
                                     ULONG flags, LPSPropProblemArray* problems);
    [[nodiscard]] HRESULT SetOne(PropertyBag& bag, const SPropValue& value);
    [[nodiscard]] HRESULT DeleteOne(PropertyBag& bag, ULONG id);
    [[nodiscard]] HRESULT OpenStream(ULONG tag, ULONG interfaceOptions, ULONG flags, LPUNKNOWN* object);
    [[nodiscard]] HRESULT ValueForReading(ULONG tag, ULONG& type, std::shared_ptr<LargeValue>& value);
    [[nodiscard]] HRESULT ValueForWriting(ULONG tag, bool discard, ULONG& type,
                                          std::shared_ptr<SpoolValue>& value);
    // Called by a stream before it writes, and to make `value` the property's value, again if need be.
    [[nodiscard]] HRESULT Relink(ULONG tag, const std::shared_ptr<SpoolValue>& value) noexcept;
    [[nodiscard]] HRESULT GiveNames(const std::vector<ULONG>& ids, ULONG* count, LPMAPINAMEID** names);
    [[nodiscard]] HRESULT NameOfAny(ULONG id, PropertyName& name);
    [[nodiscard]] HRESULT ListNamed(const GUID* set, ULONG flags, std::vector<ULONG>& ids);
    [[nodiscard]] HRESULT IdOfAny(const MAPINAMEID* name, bool create, ULONG& id);
};

// Fills `problems` (which may be null) with a chain of its own, or with null if there are none.
[[nodiscard]] HRESULT GiveProblems(const std::vector<SPropProblem>& found, const MapiAllocator& allocator,
                                   LPSPropProblemArray* problems) noexcept;

// Gives `Derived` IMAPIProp's methods from PropertyObject. `Derived` lists its interfaces as ComObject
// wants them, the first derived from IMAPIProp, and has to add SaveChanges and what's beyond IMAPIProp.
template <class Derived, class First, class... Interfaces>
class MapiProp : public ComObject<Derived, First, Interfaces..., FreeThreaded>, public PropertyObject {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override
    {
        if (!error)
            return MAPI_E_INVALID_PARAMETER;
        *error = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                       LPSPropValue* values) override
    {
        return DoGetProps(tags, flags, count, values);
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG flags, LPSPropTagArray* tags) override
    {
        return DoGetPropList(flags, tags);
    }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID iid, ULONG interfaceOptions, ULONG flags,
                                           LPUNKNOWN* object) override
    {
        return DoOpenProperty(tag, iid, interfaceOptions, flags, object);
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,
                                       LPSPropProblemArray* problems) override
    {
        return DoSetProps(count, values, problems);
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) override
    {
        return DoDeleteProps(tags, problems);
    }
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG excludedCount, LPCIID excludedInterfaces,
                                     LPSPropTagArray excludedTags, ULONG, LPMAPIPROGRESS,
                                     LPCIID targetInterface, LPVOID target, ULONG flags,
                                     LPSPropProblemArray* problems) override
    {
        return DoCopyTo(AsMapiProp(), excludedCount, excludedInterfaces, excludedTags, targetInterface,
                        target, flags, problems);
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray includedTags, ULONG, LPMAPIPROGRESS,
                                        LPCIID targetInterface, LPVOID target, ULONG flags,
                                        LPSPropProblemArray* problems) override
    {
        return DoCopyProps(AsMapiProp(), includedTags, targetInterface, target, flags, problems);
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* tags, LPGUID propertySet, ULONG flags,
                                              ULONG* count, LPMAPINAMEID** names) override
    {
        return DoGetNamesFromIDs(tags, propertySet, flags, count, names);
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                              LPSPropTagArray* tags) override
    {
        return DoGetIDsFromNames(count, names, flags, tags);
    }

protected:
    ~MapiProp() = default;

    IUnknown* Unknown() noexcept override { return this->Identity(); }

private:
    IMAPIProp* AsMapiProp() noexcept
    {
        using Interface = typename detail::InterfaceEntry<First>::Type;
        return static_cast<Interface*>(this);
    }
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PROPERTY_OBJECT_H_
