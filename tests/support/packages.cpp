#include "tests/support/packages.h"

#include "quorvane3/storage.h"

namespace quorvane::test {

namespace {

size_t CountElements(IStorage& parent, const OLECHAR* name)
{
    ComPtr<IStorage> storage;
    Check(parent.OpenStorage(name, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, storage.Put()),
          "open a part of a package");
    ComPtr<IEnumSTATSTG> elements;
    Check(storage->EnumElements(0, nullptr, 0, elements.Put()), "list a package");
    size_t count = 0;
    STATSTG element{};
    for (; elements->Next(1, &element, nullptr) == S_OK; ++count)
        CoTaskMemFree(element.pwcsName);
    return count;
}

}  // namespace

std::optional<PackageCount> CountPackage(const std::filesystem::path& path)
{
    ComPtr<IStorage> root;
    if (FAILED(StgOpenStorage(FromUtf8(path.string()).c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE,
                              nullptr, 0, root.Put())))
        return std::nullopt;
    ComPtr<IStorage> version;
    Check(root->OpenStorage(OLESTR("1.0"), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                            version.Put()),
          "open a package");
    return PackageCount{CountElements(*version.Get(), OLESTR("Items")),
                        CountElements(*version.Get(), OLESTR("Folders"))};
}

std::optional<std::filesystem::path> FindPackage(TestLogon& from, const std::string& recipients)
{
    Variant item;
    const Bstr key = Text(recipients);
    if (FAILED(from.StorageFiles()->get_Item(Variant::Text(key.View()).Raw(), item.Put())))
        return std::nullopt;
    ComPtr<IStorageFile> file;
    Check(QueryFor(item.Raw().pdispVal, file), "find a package");
    Bstr path;
    Check(file->get_Path(path.Put()), "find a package");
    return Utf8(path);
}

std::filesystem::path TakePackage(TestLogon& from, const std::string& recipients, size_t items,
                                  const TestMailbox& to)
{
    std::optional<std::filesystem::path> found;
    const bool complete = Eventually([&] {
        found = FindPackage(from, recipients);
        const auto count = found ? CountPackage(*found) : std::nullopt;
        return count && count->items >= items;
    });
    if (!complete)
        throw std::runtime_error("no package with as many items");
    const Bstr key = Text(recipients);
    Check(from.StorageFiles()->Remove(Variant::Text(key.View()).Raw()), "take a package");
    const auto delivered = to.InboxPath() / found->filename();
    std::filesystem::rename(*found, delivered);
    return delivered;
}

void Process(TestLogon& to, const std::filesystem::path& package, const std::string& tag)
{
    Check(to.Session().ProcessStorageFile(Text(package.string()).Get(), Text(tag).Get()),
          "hand a package over");
    if (!Eventually([&] { return !std::filesystem::exists(package); }))
        throw std::runtime_error("the package is not done with");
}

}  // namespace quorvane::test
