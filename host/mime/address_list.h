// host/mime/address_list.h: the people in an address field, however badly it is written.
#ifndef QUORVANE_HOST_MIME_ADDRESS_LIST_H_
#define QUORVANE_HOST_MIME_ADDRESS_LIST_H_

#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// Both in clean UTF-8; either may be empty, not both.
struct MailAddress {
    std::string name;
    std::string address;

    // What a person is shown.
    const std::string& Shown() const noexcept { return name.empty() ? address : name; }
    friend bool operator==(const MailAddress&, const MailAddress&) = default;
};

// Reads the value of a From, To, Cc... field, encoded words decoded.
//
// Everyone that is named is in the result, in their order: groups as their members (an empty group as
// nobody), comments as names, addresses that break the grammar as they stand. A name with a bare comma in
// it ("Last, First <address>") is one name; semicolons part people as commas do.
std::vector<MailAddress> ParseAddressList(std::string_view value);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_ADDRESS_LIST_H_
