// msgstore/imsg/property_writer.h: writes the properties of one object into a folder.
#ifndef QUORVANE_MSGSTORE_IMSG_PROPERTY_WRITER_H_
#define QUORVANE_MSGSTORE_IMSG_PROPERTY_WRITER_H_

#include <set>

#include "msgstore/imsg/storage_folder.h"
#include "msgstore/props/property_bag.h"

namespace quorvane {

// One object's properties on their way into its folder, in this order: Begin, Add for each, AddMessage,
// Finish. What was there and wasn't added again goes at the end.
class PropertyWriter {
public:
    explicit PropertyWriter(std::shared_ptr<StorageFolder> folder) : folder_(std::move(folder)) {}

    // Learns what the folder holds already.
    [[nodiscard]] HRESULT Begin();
    // Writes a value, or leaves its stream alone if it is that stream.
    [[nodiscard]] HRESULT Add(const PropertyValue& value);
    // Lists an embedded message as PR_ATTACH_DATA_OBJ and gives the folder to write it into.
    [[nodiscard]] HRESULT AddMessage(std::shared_ptr<StorageFolder>& message);
    // Writes the properties stream with the given header, then destroys the streams of values that the
    // stream doesn't speak of any more.
    [[nodiscard]] HRESULT Finish(const Bytes& header);

private:
    void AddEntry(ULONG tag, std::uint64_t value);
    [[nodiscard]] HRESULT AddStream(const PropertyValue& value);
    [[nodiscard]] HRESULT AddItems(const PropertyValue& value);
    [[nodiscard]] HRESULT AddStorage(const PropertyValue& value);
    [[nodiscard]] HRESULT Write(const OleString& name, const Bytes& bytes);
    [[nodiscard]] HRESULT DestroyLeftovers();

    const std::shared_ptr<StorageFolder> folder_;
    std::set<OleString> held_;     // elements that were there
    std::set<OleString> written_;  // elements that belong to what was added
    Bytes entries_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_PROPERTY_WRITER_H_
