// host/mime/property_list.h: property values that own what they point to, ready for SetProps.
#ifndef QUORVANE_HOST_MIME_PROPERTY_LIST_H_
#define QUORVANE_HOST_MIME_PROPERTY_LIST_H_

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "quorvane3/mapi.h"

namespace quorvane {

class PropertyList {
public:
    PropertyList() = default;
    PropertyList(const PropertyList&) = delete;
    PropertyList& operator=(const PropertyList&) = delete;
    PropertyList(PropertyList&&) = default;

    // `tag` has the type that the method's name says. Text is UTF-8 of any quality.
    void AddText(ULONG tag, std::string_view text);
    void AddLong(ULONG tag, LONG value);
    void AddBoolean(ULONG tag, bool value);
    void AddTime(ULONG tag, const FILETIME& value);
    void AddBinary(ULONG tag, std::string_view bytes);

    [[nodiscard]] ULONG Count() const noexcept { return static_cast<ULONG>(values_.size()); }
    // Valid as long as the list lives and isn't added to.
    [[nodiscard]] SPropValue* Values() noexcept { return values_.data(); }

    // Sets all values on an object. S_OK when each was taken, or refused as a value that the object makes
    // itself (MAPI_E_COMPUTED, MAPI_E_NO_ACCESS); else the first problem's code, or SetProps' own.
    [[nodiscard]] HRESULT SetOn(IMAPIProp& object);

private:
    SPropValue& Add(ULONG tag);

    std::vector<SPropValue> values_;
    std::deque<OleString> texts_;
    std::deque<std::string> binaries_;
};

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_PROPERTY_LIST_H_
