// msgstore/store/made_properties.h: IMAPIProp for objects whose read-only properties are made as a bag.
#ifndef QUORVANE_MSGSTORE_STORE_MADE_PROPERTIES_H_
#define QUORVANE_MSGSTORE_STORE_MADE_PROPERTIES_H_

#include "msgstore/props/property_object.h"
#include "msgstore/store/store_objects.h"

namespace quorvane {

// Gives a folder or a store IMAPIProp's methods. Changes take effect at once: there is nothing to wait for
// until SaveChanges. `Derived` says what is kept and what is made, and has to add what `Interfaces` have.
// Any thread may call.
template <class Derived, class First, class... Interfaces>
class StoreProp : public MapiProp<Derived, First, Interfaces...> {
public:
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,
                                       LPSPropProblemArray* problems) override
    {
        const std::lock_guard lock(m_lock);
        QV_RETURN_IF_FAILED(this->DoSetProps(count, values, problems));
        return Flush();
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) override
    {
        const std::lock_guard lock(m_lock);
        QV_RETURN_IF_FAILED(this->DoDeleteProps(tags, problems));
        return Flush();
    }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG) override
    {
        const std::lock_guard lock(m_lock);
        QV_RETURN_IF_FAILED(Flush());
        return Guarded([&] { return MakeDurable(); });
    }

protected:
    StoreProp(OpenedStore store, bool writable) noexcept : m_store(std::move(store)), m_writable(writable) {}
    ~StoreProp() = default;

    const OpenedStore& Store() const noexcept { return m_store; }

    // The properties that callers may change, and writing them back.
    [[nodiscard]] virtual HRESULT ReadKept(PropertyBag& bag) = 0;
    [[nodiscard]] virtual HRESULT WriteKept(const PropertyBag& bag) = 0;
    // The properties that they may not: all of them for kAll, else at least the one of that identifier.
    static constexpr ULONG kAll = 0;
    [[nodiscard]] virtual HRESULT ReadMade(ULONG id, PropertyBag& bag) = 0;
    // What SaveChanges does when there is nothing left to write.
    [[nodiscard]] virtual HRESULT MakeDurable() { return S_OK; }

    std::recursive_mutex& Lock() noexcept override { return m_lock; }
    PropertyNames& Names() noexcept override { return m_store.core->Names(); }

    HRESULT Stored(PropertyBag*& bag) noexcept override
    {
        return Guarded([&] {
            if (!m_dirty) {
                PropertyBag fresh;
                QV_RETURN_IF_FAILED(ReadKept(fresh));
                m_kept = std::move(fresh);
            }
            bag = &m_kept;
            return S_OK;
        });
    }

    void ListComputed(std::vector<ULONG>& tags) override
    {
        PropertyBag made;
        if (FAILED(ReadMade(kAll, made)))
            return;
        for (const PropertyValue& value : made)
            tags.push_back(value.tag);
    }

    HRESULT Compute(ULONG id, PropertyValue& value) override
    {
        PropertyBag made;
        QV_RETURN_IF_FAILED(ReadMade(id, made));
        const PropertyValue* const found = made.FindId(id);
        if (!found)
            return MAPI_E_NOT_FOUND;
        value = *found;
        return S_OK;
    }

    HRESULT CheckWritable() noexcept override { return m_writable ? S_OK : E_ACCESSDENIED; }

    HRESULT CheckSettable(ULONG id) noexcept override
    {
        return Guarded([&] {
            PropertyValue value;
            const HRESULT made = Compute(id, value);
            if (made == MAPI_E_NOT_FOUND)
                return S_OK;
            return FAILED(made) ? made : MAPI_E_COMPUTED;
        });
    }

    void Changed(ULONG) override { m_dirty = true; }

private:
    HRESULT Flush() noexcept
    {
        if (!m_dirty)
            return S_OK;
        m_dirty = false;
        return Guarded([&] { return WriteKept(m_kept); });
    }

    const OpenedStore m_store;
    const bool m_writable;
    std::recursive_mutex m_lock;
    PropertyBag m_kept;
    bool m_dirty = false;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_MADE_PROPERTIES_H_
