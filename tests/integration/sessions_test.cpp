// Many sessions in one process: one after the other, and side by side.
#include <gtest/gtest.h>

#include <condition_variable>
#include <fstream>
#include <iterator>
#include <mutex>
#include <regex>
#include <thread>

#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

constexpr int kLogons = 100;
constexpr int kSessions = 8;
constexpr int kRefusedLogons = 5;

size_t CountOf(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

std::string WholeLog()
{
    std::ifstream file(TestMailbox::LogPath(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A result that no part of the engine gives: the number of a thread and of a call of it.
HRESULT ResultOf(int thread, int call)
{
    return static_cast<HRESULT>(0xA0000000u | static_cast<unsigned>(thread << 16) |
                                static_cast<unsigned>(call));
}

// A user of the mailbox with a sharing database of his own.
class Member final : public TestHost {
public:
    Member(const TestMailbox& mailbox, int number)
        : TestHost(mailbox),
          number_(number),
          database_(mailbox.Directory() / ("share" + std::to_string(number) + ".mdb")),
          folder_(mailbox.MakeFolder("Shared " + std::to_string(number)))
    {
        std::filesystem::copy_file(mailbox.DatabasePath(), database_);
    }

    HRESULT DatabasePath(Bstr& path) override
    {
        path = Text(database_.string());
        return refusal_;
    }

    void LogOn()
    {
        Check(CreateLibrary(library_), "make the library");
        Check(library_->Logon(callback_.Get(), session_.Put()), "log on");
    }

    // Shares the folder, adds a mail, and waits until that lies in a package.
    void Share()
    {
        ComPtr<IFolders> folders;
        Check(session_->get_Folders(folders.Put()), "get the folders");
        const Variant id = Variant::Text(FromUtf8("{folder " + std::to_string(number_) + "}"));
        Check(folders->Add(Text(folder_.EntryId()).Get(), Text(folder_.StoreId()).Get(), id.Raw(),
                           Variant::Missing().Raw(), shared_.Put()),
              "share a folder");
        folder_.Add("Mail " + std::to_string(number_), "text");
        EXPECT_TRUE(Heard("added"));
        EXPECT_TRUE(Eventually([this] {
            const auto package = Package();
            const auto count = package ? CountPackage(*package) : std::nullopt;
            return count && count->items == 1;
        }));
    }

    // Logons of another library that the host refuses, each with a result of its own.
    void LogOnInVain()
    {
        ComPtr<ISession2> none;
        Check(CreateLibrary(refused_), "make the library");
        for (int call = 0; call < kRefusedLogons; ++call) {
            refusal_ = ResultOf(number_, call);
            EXPECT_EQ(refused_->Logon(callback_.Get(), none.Put()), refusal_);
        }
        refusal_ = S_OK;
    }

    void LogOff()
    {
        shared_.Reset();
        session_.Reset();
        library_.Reset();
        refused_.Reset();
    }

private:
    std::optional<std::filesystem::path> Package() const
    {
        ComPtr<IStorageFiles> files;
        Check(session_->get_StorageFiles(files.Put()), "get the storage files");
        Variant item;
        if (FAILED(files->get_Item(Variant::Text(FromUtf8(folder_.EntryId())).Raw(), item.Put())))
            return std::nullopt;
        ComPtr<IStorageFile> file;
        Check(QueryFor(item.Raw().pdispVal, file), "find a package");
        Bstr path;
        Check(file->get_Path(path.Put()), "find a package");
        return Utf8(path);
    }

    const int number_;
    const std::filesystem::path database_;
    const TestFolder folder_;
    HRESULT refusal_ = S_OK;
    const ComPtr<ExtCallback> callback_ = MakeComObject<ExtCallback>(*this);
    ComPtr<ILibrary> library_;
    ComPtr<ILibrary> refused_;
    ComPtr<ISession2> session_;
    ComPtr<IFolder> shared_;
};

// Where threads wait for each other, again and again. The library's own barrier loses wake-ups where it can't
// rest on the kernel (GCC 12 on Windows).
class Meeting {
public:
    explicit Meeting(int members) : members_(members) {}

    // Returns when all are there.
    void Arrive()
    {
        std::unique_lock lock(mutex_);
        const int meeting = arrivals_++ / members_;
        met_.notify_all();
        met_.wait(lock, [&] { return arrivals_ / members_ > meeting; });
    }

private:
    const int members_;
    std::mutex mutex_;
    std::condition_variable met_;
    int arrivals_ = 0;
};

// Every line of the log is whole: a header's, or one with time, function and line at its front.
void ExpectWholeLines(const std::string& log)
{
    const std::regex known(
        "(={54}|Library Compiled: .*|Log Started: .*"
        "|[0-9/.-]+ [0-9]{1,2}:[0-9]{2}:[0-9]{2} [A-Za-z0-9_:~]+\\([0-9]+\\) [^=\\r]*)");
    ASSERT_TRUE(log.ends_with("\r\n"));
    for (size_t at = 0, end = 0; at < log.size(); at = end + 2) {
        end = log.find("\r\n", at);
        ASSERT_TRUE(std::regex_match(log.substr(at, end - at), known)) << log.substr(at, end - at);
    }
}

// The results that the refused logons of one thread left, in the order of the log.
std::vector<std::string> ResultsOf(const std::string& log, int thread)
{
    std::vector<std::string> results;
    char form[64];
    std::snprintf(form, sizeof form, "CLibrary::Logon\\([0-9]+\\) 0xA0%02X([0-9A-F]{4})\\r\\n", thread);
    const std::regex line(form);
    for (auto found = std::sregex_iterator(log.begin(), log.end(), line); found != std::sregex_iterator();
         ++found)
        results.push_back((*found)[1]);
    return results;
}

TEST(SessionsTest, AHundredLogonsLeaveNothingBehind)
{
    const TestMailbox mailbox;
    for (int i = 0; i < kLogons; ++i) {
        TestLogon logon(mailbox);
        LONG count = -1;
        ComPtr<IFolders> folders;
        ASSERT_EQ(logon.Session().get_Folders(folders.Put()), S_OK);
        EXPECT_EQ(folders->get_Count(&count), S_OK);
        EXPECT_EQ(count, 0);
    }

    EXPECT_EQ(DllCanUnloadNow(), S_OK);
    const std::string log = mailbox.Log();
    EXPECT_EQ(CountOf(log, ") Startup\r\n"), size_t{kLogons});
    EXPECT_EQ(CountOf(log, ") Session shutdown\r\n"), size_t{kLogons});
    EXPECT_EQ(CountOf(WholeLog(), "Log Started"), 1u);
    ExpectWholeLines(WholeLog());
}

TEST(SessionsTest, EightSessionsWorkSideBySide)
{
    const TestMailbox mailbox;
    std::vector<std::unique_ptr<Member>> members;
    for (int i = 0; i < kSessions; ++i)
        members.push_back(std::make_unique<Member>(mailbox, i));
    // The first library that ends ends the log: all end together.
    Meeting together(kSessions + 1);
    std::vector<std::thread> threads;
    for (const auto& member : members) {
        threads.emplace_back([&together, &member] {
            member->LogOn();
            member->Share();
            member->LogOnInVain();
            together.Arrive();
            together.Arrive();
            member->LogOff();
        });
    }
    together.Arrive();
    const std::string log = mailbox.Log();
    together.Arrive();
    for (std::thread& thread : threads)
        thread.join();

    ExpectWholeLines(log);
    EXPECT_EQ(CountOf(log, ") Startup\r\n"), size_t{kSessions * (1 + kRefusedLogons)});
    EXPECT_EQ(CountOf(WholeLog(), "Log Started"), 1u);
    for (int i = 0; i < kSessions; ++i)
        EXPECT_EQ(ResultsOf(log, i), (std::vector<std::string>{"0000", "0001", "0002", "0003", "0004"}));
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

}  // namespace
}  // namespace quorvane::test
