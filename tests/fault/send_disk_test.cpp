// Items and folders on their way into a package on a disk that goes wrong at every change, one after the
// other: whoever receives what is in the package has the old item or the new one, whole.
#include <gtest/gtest.h>

#include <filesystem>

#include "engine/folders/folder.h"
#include "engine/items/arguments.h"
#include "engine/items/testing/submit_test.h"
#include "engine/transfer/package_layout.h"
#include "engine/transfer/storage_files.h"
#include "engine/transfer/storage_processor.h"
#include "platform/cfb/stg.h"
#include "platform/testing/surroundings.h"
#include "tests/fault/disk.h"

namespace quorvane {
namespace {

using test::Disk;
using test::DiskTrouble;
using testing::kNewMail;
using testing::kOldMail;
using testing::MakeDetachedMessage;
using testing::TestMail;

constexpr char kPackages[] = ".qvt";
constexpr char kDatabase[] = "share.qdb";

const TestMail kOtherMail{"Other", "Other body", {"cid"}, {}};

// What goes wrong, and at the files whose path contains what.
struct Trouble {
    DiskTrouble kind;
    const char* file;
    const char* name;
};

class SendDiskTest : public testing::SubmitTest, public ::testing::WithParamInterface<Trouble> {
protected:
    SendDiskTest()
    {
        EXPECT_EQ(stop.Create(false), S_OK);
        test::KeepTemporaryFilesIn(packages.Path());
    }

    bool IsAtPackage() const { return std::string(GetParam().file) == kPackages; }

    // An empty list of packages, and the receiver with the item or without.
    void Begin(bool known)
    {
        Prepare(known);
        session.Execute("DELETE FROM tblStorageFiles");
        for (const auto& entry : std::filesystem::directory_iterator(packages.Path()))
            std::filesystem::remove(entry.path());
        files = MakeComObject<CStorageFiles>(&session);
        session.storageFiles = ComPtr<IStorageFiles>(files.Get());
    }

    // A package that couldn't be made whole leaves no file; one without a row leaves it to the host.
    void ExpectNoHalfMadeFile()
    {
        if (!PackagePath().empty() || GetParam().kind == DiskTrouble::kBroken || !IsAtPackage())
            return;
        EXPECT_TRUE(std::filesystem::is_empty(packages.Path()));
    }

    // "" when there is no package.
    std::string PackagePath()
    {
        Variant value;
        ComPtr<IStorageFile> file;
        Bstr path;
        if (!files || FAILED(files->get_Item(TextArgument(recipients.Get()), value.Put())) ||
            FAILED(QueryFor(value.Raw().pdispVal, file)) || FAILED(file->get_Path(path.Put())))
            return "";
        return Narrow(path.View());
    }

    HRESULT SendMail(const TestMail& mail)
    {
        return MakeItem(OLESTR("{A}"), *MakeDetachedMessage(mail))->Send(recipients.Get());
    }
    HRESULT SendDeletion() { return MakeItem(OLESTR("{A}"))->Send(recipients.Get()); }

    // How many elements a part of the package has; 0 when there is no package.
    size_t CountIn(const OLECHAR* part)
    {
        const std::string path = PackagePath();
        if (path.empty())
            return 0;
        ComPtr<IStorage> root;
        ComPtr<IStorage> version;
        ComPtr<IStorage> storage;
        ComPtr<IEnumSTATSTG> elements;
        EXPECT_EQ(StgOpenStorage(Widen(path).c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), S_OK);
        EXPECT_EQ(root->OpenStorage(kVersionName, nullptr, kOpenMode, nullptr, 0, version.Put()), S_OK);
        EXPECT_EQ(version->OpenStorage(part, nullptr, kOpenMode, nullptr, 0, storage.Put()), S_OK);
        EXPECT_EQ(storage->EnumElements(0, nullptr, 0, elements.Put()), S_OK);
        size_t count = 0;
        STATSTG stat{};
        for (; elements->Next(1, &stat, nullptr) == S_OK; ++count)
            CoTaskMemFree(stat.pwcsName);
        return count;
    }

    // Has the package taken apart, and begins another.
    void Receive()
    {
        const std::string path = PackagePath();
        if (path.empty())
            return;
        CStorageProcessor processor(Bstr(Widen(path)), Bstr(OLESTR("tag")), &session);
        processor.ThreadProc(stop);
        EXPECT_FALSE(std::filesystem::exists(path));
        EXPECT_EQ(files->Remove(TextArgument(recipients.Get())), S_OK);
    }

    // Sends with the trouble at the disk's first change, the second, and so on until none is met. `judge`
    // looks at what a failure left, and then the next attempt is made on a whole disk.
    template <class Prepare, class Send, class Judge, class Expect>
    void FailEverywhere(Prepare prepare, Send send, Judge judge, Expect expectDone)
    {
        for (unsigned at = 1;; ++at) {
            SCOPED_TRACE("change " + std::to_string(at));
            prepare();
            Disk::Break(GetParam().kind, at, GetParam().file);
            const HRESULT hr = send();
            const unsigned changes = Disk::Repair();
            if (FAILED(hr)) {
                ExpectNoHalfMadeFile();
                judge();
                EXPECT_EQ(send(), S_OK);
            }
            Receive();
            expectDone();
            if (HasFailure() || changes < at) {
                EXPECT_EQ(hr, S_OK);
                EXPECT_GT(at, IsAtPackage() ? 5u : 0u);
                return;
            }
        }
    }

    // Where the disk stays broken, an element whose very last change failed can't be taken back: it is whole.
    bool MayHaveArrived() const { return GetParam().kind == DiskTrouble::kBroken; }

    // What remains of an item whose sending failed is nothing; on a disk that stays broken it may be an
    // element that no reader takes.
    void ExpectNoElement(const OLECHAR* part)
    {
        if (GetParam().kind == DiskTrouble::kBroken)
            EXPECT_LE(CountIn(part), 1u);
        else
            EXPECT_EQ(CountIn(part), 0u);
    }

    const test::TestDirectory packages;
    const Bstr recipients{OLESTR("us")};
    ComPtr<CStorageFiles> files;
    Event stop;
};

TEST_P(SendDiskTest, AChangeArrivesWholeOrNotAtAll)
{
    FailEverywhere([this] { Begin(true); }, [this] { return SendMail(kNewMail); },
                   [this] {
                       ExpectNoElement(kItemsName);
                       Receive();
                       ExpectOnly(MayHaveArrived() && Mails().size() == 1 && Is(Mails()[0], kNewMail)
                                      ? kNewMail
                                      : kOldMail);
                   },
                   [this] { ExpectOnly(kNewMail); });
}

TEST_P(SendDiskTest, ANewItemArrivesWholeOrNotAtAll)
{
    FailEverywhere([this] { Begin(false); }, [this] { return SendMail(kNewMail); },
                   [this] {
                       Receive();
                       if (MayHaveArrived() && !Mails().empty())
                           ExpectOnly(kNewMail);
                       else
                           ExpectNothing();
                   },
                   [this] { ExpectOnly(kNewMail); });
}

TEST_P(SendDiskTest, AChangeOfWhatIsInThePackageAlreadyArrivesWholeOrNotAtAll)
{
    unsigned failed = 0;
    unsigned kept = 0;
    FailEverywhere(
        [this] {
            Begin(true);
            EXPECT_EQ(SendMail(kOtherMail), S_OK);
        },
        [this] { return SendMail(kNewMail); },
        [this, &failed, &kept] {
            Receive();
            const std::vector<Bstr> mails = Mails();
            ASSERT_EQ(mails.size(), 1u);
            EXPECT_TRUE(Is(mails[0], kOldMail) || Is(mails[0], kOtherMail) ||
                        (MayHaveArrived() && Is(mails[0], kNewMail)));
            ++failed;
            kept += Is(mails[0], kOtherMail) ? 1 : 0;
        },
        [this] { ExpectOnly(kNewMail); });
    EXPECT_TRUE(kept > 0 || failed == 0) << "what was in the package before stays where that is possible";
}

TEST_P(SendDiskTest, ADeletionArrivesOrTheItemStays)
{
    FailEverywhere([this] { Begin(true); }, [this] { return SendDeletion(); },
                   [this] {
                       ExpectNoElement(kItemsName);
                       Receive();
                       if (MayHaveArrived() && Mails().empty())
                           ExpectNothing();
                       else
                           ExpectOnly(kOldMail);
                   },
                   [this] { ExpectNothing(); });
}

TEST_P(SendDiskTest, AFolderIsAnnouncedOnceOrNotAtAll)
{
    const ComPtr<CFolder> announced = MakeComObject<CFolder>(&session);
    ASSERT_EQ(announced->put_ID(Bstr(OLESTR("{new}")).Get()), S_OK);
    ASSERT_EQ(announced->put_CustomInfo(Bstr(OLESTR("info")).Get()), S_OK);
    size_t heard = 0;
    session.host.whenFolderReceived = [&heard](IFolder* shown) {
        Bstr info;
        EXPECT_EQ(shown->get_CustomInfo(info.Put()), S_OK);
        EXPECT_EQ(info.View(), OLESTR("info"));
        ++heard;
        return S_OK;
    };
    FailEverywhere(
        [&] {
            Begin(false);
            heard = 0;
        },
        [&] { return announced->Send(TextArgument(recipients.Get())); },
        [&] {
            ExpectNoElement(kFoldersName);
            Receive();
            EXPECT_LE(heard, MayHaveArrived() ? 1u : 0u);
            heard = 0;
        },
        [&] { EXPECT_EQ(heard, 1u); });
}

INSTANTIATE_TEST_SUITE_P(Disk, SendDiskTest,
                         ::testing::Values(Trouble{DiskTrouble::kHiccup, kPackages, "PackageHiccup"},
                                           Trouble{DiskTrouble::kBroken, kPackages, "PackageBroken"},
                                           Trouble{DiskTrouble::kFull, kPackages, "PackageFull"},
                                           Trouble{DiskTrouble::kHiccup, kDatabase, "DatabaseHiccup"},
                                           Trouble{DiskTrouble::kBroken, kDatabase, "DatabaseBroken"},
                                           Trouble{DiskTrouble::kFull, kDatabase, "DatabaseFull"}),
                         [](const auto& trouble) { return std::string(trouble.param.name); });

}  // namespace
}  // namespace quorvane
