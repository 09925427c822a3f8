// host/base/compound_file.h: walking through compound files, and the records inside a package.
#ifndef QUORVANE_HOST_BASE_COMPOUND_FILE_H_
#define QUORVANE_HOST_BASE_COMPOUND_FILE_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "quorvane3/com.h"
#include "quorvane3/storage.h"

namespace quorvane::host {

// One element of a storage.
struct Element {
    OleString name;
    bool isStorage = false;
    std::uint64_t size = 0;
};

// The elements of a storage. Throws a HostError naming `shown`.
std::vector<Element> ListElements(IStorage& storage, const std::string& shown);

// Opens a compound file to read it. Throws a HostError.
ComPtr<IStorage> OpenCompoundFile(const std::filesystem::path& path);

// A sub-storage or a stream by name; empty when it can't be opened.
ComPtr<IStorage> OpenSubStorage(IStorage& parent, const OleString& name);
ComPtr<IStream> OpenSubStream(IStorage& parent, const OleString& name);

// What a "Contents" stream in a package says of a folder or an item. Texts are UTF-8.
struct PackageRecord {
    OleString element;  // its storage's name
    std::string id;
    std::string folderId;  // items only
    std::string customInfo;
    std::int32_t action = 0;  // items only
    bool hasMessage = false;  // items only
};

struct Package {
    std::vector<PackageRecord> folders;
    std::vector<PackageRecord> items;
};

// Calls `visit` for each storage in a part of a package, "Folders" or "Items". Throws a HostError naming
// `shown`.
void ForEachStorage(IStorage& root, const OLECHAR* part, const std::string& shown,
                    const std::function<void(const OleString& name, IStorage&)>& visit);

// The record of a folder or an item on its storage, and the storage of the item's message; empty when the
// item has none. The first two throw a HostError naming `shown` when the record is damaged.
PackageRecord ReadFolderRecord(IStorage& storage, const std::string& shown);
PackageRecord ReadItemRecord(IStorage& storage, const std::string& shown);
ComPtr<IStorage> OpenMessageStorage(IStorage& item);

// Whether the root of a compound file is that of a package.
bool IsPackage(IStorage& root);

// Reads the records of a package and calls `visit` for each item that carries a message, with the storage
// that the message lies on. Throws a HostError naming `shown` when a record is damaged.
Package ReadPackage(IStorage& root, const std::string& shown,
                    const std::function<void(const PackageRecord&, IStorage&)>& visit);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_COMPOUND_FILE_H_
