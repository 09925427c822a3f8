#include "tests/support/packages.h"

#include "quorvane3/storage.h"

namespace quorvane::test {

namespace {

// None when there is no such storage or it can't be listed.
std::optional<size_t> CountElements(IStorage& parent, const OLECHAR* name)
{
    constexpr DWORD kMode = STGM_READ | STGM_SHARE_EXCLUSIVE;
    ComPtr<IStorage> storage;
    ComPtr<IEnumSTATSTG> elements;
    if (FAILED(parent.OpenStorage(name, nullptr, kMode, nullptr, 0, storage.Put())) ||
        FAILED(storage->EnumElements(0, nullptr, 0, elements.Put())))
        return std::nullopt;
    size_t count = 0;
    STATSTG element{};
    for (; elements->Next(1, &element, nullptr) == S_OK; ++count)
        CoTaskMemFree(element.pwcsName);
    return count;
}

std::optional<PackageCount> CountElementsOf(const std::filesystem::path& path)
{
    constexpr DWORD kMode = STGM_READ | STGM_SHARE_EXCLUSIVE;
    ComPtr<IStorage> root;
    ComPtr<IStorage> version;
    if (FAILED(StgOpenStorage(FromUtf8(path.string()).c_str(), nullptr, kMode, nullptr, 0, root.Put())) ||
        FAILED(root->OpenStorage(OLESTR("1.0"), nullptr, kMode, nullptr, 0, version.Put())))
        return std::nullopt;
    const auto items = CountElements(*version.Get(), OLESTR("Items"));
    const auto folders = CountElements(*version.Get(), OLESTR("Folders"));
    if (!items || !folders)
        return std::nullopt;
    return PackageCount{*items, *folders};
}

}  // namespace

std::optional<PackageCount> CountPackage(const std::filesystem::path& path)
{
    // The engine may be about to open the package for writing, alone: a copy keeps out of its way.
    const TestDirectory directory;
    const auto copy = directory.Path() / "copy";
    std::error_code failed;
    std::filesystem::copy_file(path, copy, failed);
    return failed ? std::nullopt : CountElementsOf(copy);
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
