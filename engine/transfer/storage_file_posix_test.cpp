// A package that can't be opened just now: the process has no descriptors left.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>

#include "engine/items/item.h"
#include "engine/items/message_storage.h"
#include "engine/items/testing/test_session.h"
#include "engine/transfer/storage_file.h"
#include "engine/transfer/storage_processor.h"
#include "platform/cfb/stg.h"
#include "platform/testing/open_files.h"

namespace quorvane {
namespace {

// While it lives the process opens no file more.
class NoDescriptors {
public:
    NoDescriptors()
    {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
        rlimit none = before_;
        none.rlim_cur = 0;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~NoDescriptors() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0); }

private:
    rlimit before_{};
};

class UnopenedPackageTest : public ::testing::Test {
protected:
    UnopenedPackageTest()
    {
        EXPECT_EQ(file->put_Recipients(Bstr(OLESTR("us")).Get()), S_OK);
        Variant element;
        EXPECT_EQ(file->OpenItem(id.Get(), element.Put()), S_OK);
        element = Variant();
        EXPECT_EQ(file->Unlock(), S_OK);
        Bstr text;
        EXPECT_EQ(file->get_Path(text.Put()), S_OK);
        path = Narrow(text.View());
        size = std::filesystem::file_size(path);
    }
    ~UnopenedPackageTest() override { std::filesystem::remove(path); }

    void ExpectSound()
    {
        ASSERT_TRUE(std::filesystem::exists(path));
        EXPECT_EQ(std::filesystem::file_size(path), size);
    }

    testing::TestSession session;
    ComPtr<CStorageFile> file = MakeComObject<CStorageFile>(&session);
    const Bstr id{OLESTR("{A}")};
    std::string path;
    std::uintmax_t size = 0;
};

TEST_F(UnopenedPackageTest, ASoundPackageStaysWhenDescriptorsRunOut)
{
    Variant item;
    Variant folder;
    {
        const NoDescriptors none;
        EXPECT_EQ(file->OpenItem(id.Get(), item.Put()), STG_E_TOOMANYOPENFILES);
        EXPECT_EQ(file->OpenFolder(id.Get(), folder.Put()), STG_E_TOOMANYOPENFILES);
    }
    ExpectSound();
    EXPECT_EQ(file->OpenItem(Bstr(OLESTR("{B}")).Get(), item.Put()), S_OK);
    item = Variant();
    EXPECT_EQ(file->Unlock(), S_OK);
}

TEST_F(UnopenedPackageTest, AReceivedPackageThatCantBeOpenedNowStaysWithItsRow)
{
    session.Execute("INSERT INTO tblUnfinishedReceiveJob VALUES ('" + path + "', 'tag')");
    Event stop;
    ASSERT_EQ(stop.Create(false), S_OK);
    CStorageProcessor processor(Bstr(Widen(path)), Bstr(OLESTR("tag")), &session);
    {
        const NoDescriptors none;
        EXPECT_EQ(processor.ThreadProc(stop), 0u);
    }
    ExpectSound();
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblUnfinishedReceiveJob"), "1");
}

// As a process leaves it that is killed before the file is closed.
TEST(KeptPackageTest, WhatWasWrittenIsInTheFileWhileItIsOpen)
{
    testing::TestSession session;
    const auto kept = std::make_shared<std::atomic<bool>>(true);
    const ComPtr<CStorageFile> file = MakeComObject<CStorageFile>(&session, kept);
    ASSERT_EQ(file->put_Recipients(Bstr(OLESTR("us")).Get()), S_OK);
    Bstr text;
    ASSERT_EQ(file->get_Path(text.Put()), S_OK);
    const std::string path = Narrow(text.View());
    const std::string copy = path + "-copy";
    for (const OLECHAR* const id : {OLESTR("{A}"), OLESTR("{B}")}) {
        SCOPED_TRACE(Narrow(id));
        ASSERT_EQ(file->Lock(), S_OK);
        {
            Variant element;
            ASSERT_EQ(file->OpenItem(Bstr(id).Get(), element.Put()), S_OK);
            ComPtr<IStorage> storage;
            ASSERT_EQ(QueryFor(element.Raw().punkVal, storage), S_OK);
        }
        ASSERT_EQ(file->Unlock(), S_OK);
        std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing);
        const ComPtr<CStorageFile> other = MakeComObject<CStorageFile>(&session);
        ASSERT_EQ(other->put_Path(Bstr(Widen(copy)).Get()), S_OK);
        EXPECT_EQ(other->DestroyItem(Bstr(id).Get()), S_OK);
        EXPECT_EQ(other->DestroyItem(Bstr(OLESTR("{C}")).Get()), STG_E_FILENOTFOUND);
    }
    std::filesystem::remove(path);
    std::filesystem::remove(copy);
}

}  // namespace
}  // namespace quorvane
