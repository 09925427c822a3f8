#include "host/base/compound_file.h"

#include "host/base/errors.h"
#include "host/base/path_text.h"

namespace quorvane::host {

namespace {

constexpr DWORD kReadMode = STGM_READ | STGM_SHARE_EXCLUSIVE;
constexpr std::uint32_t kNewestVersion = 2560;
constexpr std::uint32_t kLongestText = 0x100000;
constexpr OLECHAR kContents[] = OLESTR("Contents");
constexpr OLECHAR kMessage[] = OLESTR("MAPI_DATA");

// Reads the little-endian record of a "Contents" stream; every short or wrong piece throws.
class RecordReader {
public:
    RecordReader(IStream& stream, std::string shown) : stream_(stream), shown_(std::move(shown))
    {
        if (Number() > kNewestVersion)
            Damaged("its version is unknown");
    }

    std::uint32_t Number()
    {
        BYTE bytes[4];
        Read(bytes, sizeof bytes);
        return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
    }

    std::string Text()
    {
        const std::uint32_t size = Number();
        if (size == 0)
            return {};
        if (size > kLongestText || size % 2 != 0)
            Damaged("the length of a text is not valid");
        std::vector<BYTE> bytes(size);
        Read(bytes.data(), size);
        OleString text;
        for (std::uint32_t i = 0; i + 2 < size; i += 2)
            text += static_cast<OLECHAR>(bytes[i] | bytes[i + 1] << 8);
        return ToUtf8(text);
    }

private:
    void Read(void* target, ULONG size)
    {
        ULONG count = 0;
        if (FAILED(stream_.Read(target, size, &count)) || count != size)
            Damaged("it ends too early");
    }
    [[noreturn]] void Damaged(const char* why) const
    {
        Fail("read the package", shown_, std::string("a \"Contents\" stream is damaged: ") + why);
    }

    IStream& stream_;
    std::string shown_;
};

// A part of a package, "Folders" or "Items", with the storage above it: a storage serves no longer than its
// parent.
struct PackagePart {
    PackagePart(IStorage& root, const OLECHAR* name)
        : version(OpenSubStorage(root, OLESTR("1.0"))),
          storage(version ? OpenSubStorage(*version, name) : nullptr)
    {}
    ComPtr<IStorage> version;
    ComPtr<IStorage> storage;
};

ComPtr<IStream> OpenContents(IStorage& storage, const std::string& shown)
{
    ComPtr<IStream> contents = OpenSubStream(storage, kContents);
    if (!contents)
        Fail("read the package", shown, "an element has no \"Contents\" stream");
    return contents;
}

}  // namespace

std::vector<Element> ListElements(IStorage& storage, const std::string& shown)
{
    ComPtr<IEnumSTATSTG> enumerator;
    Check(storage.EnumElements(0, nullptr, 0, enumerator.Put()), "read", shown);
    std::vector<Element> elements;
    for (;;) {
        STATSTG stat{};
        const HRESULT hr = enumerator->Next(1, &stat, nullptr);
        Check(hr, "read", shown);
        if (hr != S_OK)
            return elements;
        elements.push_back({stat.pwcsName ? stat.pwcsName : OleString(), stat.type == STGTY_STORAGE,
                            stat.type == STGTY_STREAM ? stat.cbSize.QuadPart : 0});
        CoTaskMemFree(stat.pwcsName);
    }
}

ComPtr<IStorage> OpenCompoundFile(const std::filesystem::path& path)
{
    const OleString name = OleTextOf(path);
    ComPtr<IStorage> root;
    Check(StgOpenStorage(name.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0, root.Put()),
          "open", path.string());
    return root;
}

ComPtr<IStorage> OpenSubStorage(IStorage& parent, const OleString& name)
{
    ComPtr<IStorage> storage;
    if (FAILED(parent.OpenStorage(name.c_str(), nullptr, kReadMode, nullptr, 0, storage.Put())))
        storage.Reset();
    return storage;
}

ComPtr<IStream> OpenSubStream(IStorage& parent, const OleString& name)
{
    ComPtr<IStream> stream;
    if (FAILED(parent.OpenStream(name.c_str(), nullptr, kReadMode, 0, stream.Put())))
        stream.Reset();
    return stream;
}

void ForEachStorage(IStorage& root, const OLECHAR* part, const std::string& shown,
                    const std::function<void(const OleString&, IStorage&)>& visit)
{
    const PackagePart place(root, part);
    if (!place.storage)
        return;
    for (const Element& element : ListElements(*place.storage, shown))
        if (const ComPtr<IStorage> storage =
                element.isStorage ? OpenSubStorage(*place.storage, element.name) : nullptr)
            visit(element.name, *storage);
}

PackageRecord ReadFolderRecord(IStorage& storage, const std::string& shown)
{
    const ComPtr<IStream> contents = OpenContents(storage, shown);
    RecordReader reader(*contents, shown);
    PackageRecord record;
    record.customInfo = reader.Text();
    record.id = reader.Text();
    return record;
}

PackageRecord ReadItemRecord(IStorage& storage, const std::string& shown)
{
    const ComPtr<IStream> contents = OpenContents(storage, shown);
    RecordReader reader(*contents, shown);
    PackageRecord record;
    record.id = reader.Text();
    record.folderId = reader.Text();
    record.customInfo = reader.Text();
    record.action = static_cast<std::int32_t>(reader.Number());
    return record;
}

ComPtr<IStorage> OpenMessageStorage(IStorage& item)
{
    return OpenSubStorage(item, kMessage);
}

bool IsPackage(IStorage& root)
{
    return PackagePart(root, OLESTR("Items")).storage || PackagePart(root, OLESTR("Folders")).storage;
}

Package ReadPackage(IStorage& root, const std::string& shown,
                    const std::function<void(const PackageRecord&, IStorage&)>& visit)
{
    Package package;
    ForEachStorage(root, OLESTR("Folders"), shown, [&](const OleString& name, IStorage& storage) {
        package.folders.push_back(ReadFolderRecord(storage, shown));
        package.folders.back().element = name;
    });
    ForEachStorage(root, OLESTR("Items"), shown, [&](const OleString& name, IStorage& storage) {
        PackageRecord record = ReadItemRecord(storage, shown);
        record.element = name;
        const ComPtr<IStorage> message = OpenMessageStorage(storage);
        record.hasMessage = static_cast<bool>(message);
        if (message)
            visit(record, *message);
        package.items.push_back(std::move(record));
    });
    return package;
}

}  // namespace quorvane::host
