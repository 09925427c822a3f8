// host/mime/part_fields.h: the header fields of an exported part.
#ifndef QUORVANE_HOST_MIME_PART_FIELDS_H_
#define QUORVANE_HOST_MIME_PART_FIELDS_H_

#include <string>
#include <vector>

#include "host/mime/header_fields.h"

namespace quorvane {

// What an attachment says of itself; each may be empty.
struct PartFacts {
    std::string type;     // "text/plain"
    std::string charset;  // of text
    std::string name;
    std::string id;  // without angle brackets
    std::string location;
    bool related = false;  // HTML shows it
};

// The fields of a part, Content-Transfer-Encoding left out.
//
// block  the header block that the part came with; may be empty. Its fields stay where they agree with
//        `facts`; where they don't, all fields of MIME's structure are made anew.
std::vector<HeaderField> PartFields(const std::string& block, const PartFacts& facts);

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_PART_FIELDS_H_
