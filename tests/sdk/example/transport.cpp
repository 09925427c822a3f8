#include "transport.h"

#include <chrono>

#include "error.h"

using namespace quorvane;
namespace fs = std::filesystem;

namespace {

// Who wrote to a package this lately may not be done with it.
constexpr auto kQuietTime = std::chrono::milliseconds(300);

bool IsQuiet(const fs::path& file)
{
    std::error_code error;
    const auto written = fs::last_write_time(file, error);
    return error || fs::file_time_type::clock::now() - written >= kQuietTime;
}

// Whole or not at all, under a name that nobody reads before it is whole.
void Move(const fs::path& from, const fs::path& to)
{
    const fs::path partial = to.string() + ".part";
    fs::copy_file(from, partial, fs::copy_options::overwrite_existing);
    fs::rename(partial, to);
    fs::remove(from);
}

}  // namespace

Transport::Transport(std::string member, fs::path out, fs::path in, fs::path inbox)
    : member_(std::move(member)), out_(std::move(out)), in_(std::move(in)), inbox_(std::move(inbox))
{}

int Transport::Deliver(ISession2& session) const
{
    ComPtr<IStorageFiles> packages;
    Check(session.get_StorageFiles(packages.Put()), "list the packages");
    int delivered = 0;
    const HRESULT hr = ForEach<IStorageFile>(*packages.Get(), [&](IStorageFile& package) {
        std::string path;
        std::string recipients;
        Check(ReadText(package, &IStorageFile::get_Path, path), "read a package");
        Check(ReadText(package, &IStorageFile::get_Recipients, recipients), "read a package");
        if (!IsQuiet(path))
            return S_OK;
        Check(packages->Remove(Variant::Text(FromUtf8(recipients)).Raw()), "take a package");
        Move(path, out_ / (member_ + '~' + fs::path(path).filename().string()));
        ++delivered;
        return S_OK;
    });
    Check(hr, "list the packages");
    return delivered;
}

int Transport::Receive(ISession2& session) const
{
    int received = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(in_)) {
        if (entry.path().extension() != ".qvt")
            continue;
        const std::string name = entry.path().filename().string();
        const fs::path path = inbox_ / name;
        Move(entry.path(), path);
        const Bstr file(Widen(path.string()));
        const Bstr sender(FromUtf8(name.substr(0, name.find('~'))));
        Check(session.ProcessStorageFile(file.Get(), sender.Get()), "process a package");
        ++received;
    }
    return received;
}
