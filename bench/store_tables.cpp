// Tables of a folder with very many messages, beside SQLite alone.
//
//   store_tables MESSAGES [DIRECTORY]
//
// Fills a folder with so many short messages, each saved by itself and deferred, and asks its contents table
// what mail programs ask. Beside each answer stands what SQLite alone takes in the same process for the same
// question: the same rows written into the same tables and indexes, one transaction a message; the numbers of
// the same rows in the same order out of the same file. Seconds of the processor and of the clock, medians of
// five (filling: once). peak_MB is the process's at the end, and what it was before the questions. The
// directory (a new one in the temporary directory) goes at the end.
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>

#include "bench/open_folder.h"

namespace quorvane::bench {
namespace {

using Clock = std::chrono::steady_clock;

struct Cost {
    double cpu = 0;
    double wall = 0;
};

double CpuNow()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double PeakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

Cost Once(const std::function<void()>& work)
{
    const double cpu = CpuNow();
    const Clock::time_point begun = Clock::now();
    work();
    return {CpuNow() - cpu, std::chrono::duration<double>(Clock::now() - begun).count()};
}

Cost MedianOf5(const std::function<void()>& work)
{
    std::vector<double> cpu;
    std::vector<double> wall;
    for (int i = 0; i < 5; ++i) {
        const Cost cost = Once(work);
        cpu.push_back(cost.cpu);
        wall.push_back(cost.wall);
    }
    std::nth_element(cpu.begin(), cpu.begin() + 2, cpu.end());
    std::nth_element(wall.begin(), wall.begin() + 2, wall.end());
    return {cpu[2], wall[2]};
}

void Print(const char* what, const Cost& store, const Cost& sqlite)
{
    std::printf("%-22s store %9.4f s cpu %9.4f s   sqlite %9.4f s cpu %9.4f s   ratio %5.2f (cpu)\n", what,
                store.cpu, store.wall, sqlite.cpu, sqlite.wall, store.cpu / std::max(sqlite.cpu, 1e-9));
    std::fflush(stdout);
}

// Message number i: subjects and times in no order.
std::size_t Mixed(std::size_t i)
{
    return i * 2654435761u % 4294967291u;
}
std::u16string SubjectOf(std::size_t i)
{
    std::u16string subject = u"Subject of number ";
    for (const char digit : std::to_string(Mixed(i)))
        subject.push_back(static_cast<char16_t>(digit));
    return subject;
}
FILETIME TimeOf(std::size_t i)
{
    return {static_cast<DWORD>(Mixed(i)), 0x01DA0000u};
}

void AddMessage(IMAPIFolder& folder, std::size_t i)
{
    ComPtr<IMessage> message;
    Require(SUCCEEDED(folder.CreateMessage(nullptr, 0, message.Put())), "CreateMessage");
    std::u16string subject = SubjectOf(i);
    std::u16string sender = u"Sender";
    std::string body(300, 'x');
    SPropValue values[4]{};
    values[0].ulPropTag = PR_SUBJECT_W;
    values[0].Value.lpszW = subject.data();
    values[1].ulPropTag = PR_SENDER_NAME_W;
    values[1].Value.lpszW = sender.data();
    values[2].ulPropTag = PR_MESSAGE_DELIVERY_TIME;
    values[2].Value.ft = TimeOf(i);
    values[3].ulPropTag = PR_BODY_A;
    values[3].Value.lpszA = body.data();
    Require(SUCCEEDED(message->SetProps(4, values, nullptr)), "SetProps");
    Require(SUCCEEDED(message->SaveChanges(MAPI_DEFERRED_ERRORS)), "SaveChanges");
}

class Sqlite {
public:
    explicit Sqlite(const std::string& path)
    {
        Require(sqlite3_open(path.c_str(), &database_) == SQLITE_OK, "sqlite3_open");
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;
    ~Sqlite() { sqlite3_close(database_); }

    void Run(const std::string& sql)
    {
        Require(sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, sql.c_str());
    }
    // The numbers that a statement gives.
    std::vector<sqlite3_int64> Ask(const std::string& sql)
    {
        std::vector<sqlite3_int64> numbers;
        sqlite3_stmt* statement = nullptr;
        Require(sqlite3_prepare_v2(database_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK,
                sql.c_str());
        while (sqlite3_step(statement) == SQLITE_ROW)
            numbers.push_back(sqlite3_column_int64(statement, 0));
        sqlite3_finalize(statement);
        return numbers;
    }
    // The rows that another store has, one transaction for what belongs to one message.
    void CopyRows(std::size_t count)
    {
        const char* const statements[] = {
            "BEGIN IMMEDIATE", "INSERT INTO message SELECT * FROM original.message WHERE id=?",
            "INSERT INTO part SELECT * FROM original.part WHERE id=?",
            "INSERT INTO change SELECT * FROM original.change WHERE number=?", "COMMIT"};
        std::vector<sqlite3_stmt*> prepared;
        for (const char* const sql : statements) {
            sqlite3_stmt* statement = nullptr;
            Require(sqlite3_prepare_v2(database_, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
            prepared.push_back(statement);
        }
        for (std::size_t i = 1; i <= count; ++i) {
            for (sqlite3_stmt* const statement : prepared) {
                if (sqlite3_bind_parameter_count(statement) == 1)
                    sqlite3_bind_int64(statement, 1, static_cast<sqlite3_int64>(i));
                Require(sqlite3_step(statement) == SQLITE_DONE, "a copied row");
                sqlite3_reset(statement);
            }
        }
        for (sqlite3_stmt* const statement : prepared)
            sqlite3_finalize(statement);
    }

private:
    sqlite3* database_ = nullptr;
};

const std::string kIds = "SELECT id FROM message WHERE folder_id=3 AND associated=0 ";

ULONG CountOf(IMAPITable& table)
{
    ULONG count = 0;
    Require(SUCCEEDED(table.GetRowCount(0, &count)), "GetRowCount");
    return count;
}

void SortBy(IMAPITable& table, ULONG tag)
{
    SizedSSortOrderSet(1, order) = {1, 0, 0, {{tag, TABLE_SORT_ASCEND}}};
    Require(SUCCEEDED(table.SortTable(reinterpret_cast<LPSSortOrderSet>(&order), 0)), "SortTable");
}

SRestriction Holding(SPropValue& value, std::u16string& text, ULONG level)
{
    value = {};
    value.ulPropTag = PR_SUBJECT_W;
    value.Value.lpszW = text.data();
    SRestriction restriction{};
    restriction.rt = RES_CONTENT;
    restriction.res.resContent = {level, PR_SUBJECT_W, &value};
    return restriction;
}

void AskBoth(const OpenFolder& opened, Sqlite& sqlite, std::size_t count)
{
    const auto expect = [&](std::size_t rows) { Require(rows == count, "the number of rows"); };
    Print("open", MedianOf5([&] { expect(CountOf(*opened.Contents())); }),
          MedianOf5([&] { expect(sqlite.Ask(kIds + "ORDER BY id").size()); }));
    const ComPtr<IMAPITable> table = opened.Contents();
    expect(CountOf(*table));
    Print("sort by date", MedianOf5([&] { SortBy(*table, PR_MESSAGE_DELIVERY_TIME); }),
          MedianOf5([&] { expect(sqlite.Ask(kIds + "ORDER BY delivered, id").size()); }));
    Print("sort by sender", MedianOf5([&] { SortBy(*table, PR_SENDER_NAME_W); }),
          MedianOf5([&] { expect(sqlite.Ask(kIds + "ORDER BY lower(sender_name), id").size()); }));
    Print("sort by subject", MedianOf5([&] { SortBy(*table, PR_SUBJECT_W); }),
          MedianOf5([&] { expect(sqlite.Ask(kIds + "ORDER BY subject_key, id").size()); }));

    SPropValue value{};
    std::u16string part = u"77";
    SRestriction restriction = Holding(value, part, FL_SUBSTRING | FL_IGNORECASE);
    std::size_t held = 0;
    const Cost restricted = MedianOf5([&] {
        Require(SUCCEEDED(table->Restrict(&restriction, 0)), "Restrict");
        held = CountOf(*table);
    });
    Print("restrict by subject", restricted, MedianOf5([&] {
              Require(sqlite.Ask(kIds + "AND instr(subject_key, '77') > 0 ORDER BY subject_key, id").size() ==
                          held,
                      "the restricted rows");
          }));
    Require(SUCCEEDED(table->Restrict(nullptr, 0)), "Restrict");

    std::u16string whole = SubjectOf(count / 2);
    const std::string narrow(whole.begin(), whole.end());
    SRestriction one = Holding(value, whole, FL_FULLSTRING | FL_IGNORECASE);
    constexpr int kFinds = 100;
    Print("100 times FindRow", MedianOf5([&] {
              for (int i = 0; i < kFinds; ++i)
                  Require(table->FindRow(&one, BOOKMARK_BEGINNING, 0) == S_OK, "FindRow");
          }),
          MedianOf5([&] {
              std::string lower = narrow;
              lower[0] = 's';
              for (int i = 0; i < kFinds; ++i)
                  Require(
                      sqlite.Ask(kIds + "AND subject_key='" + lower + "' ORDER BY subject_key, id LIMIT 1")
                              .size() == 1,
                      "the row");
          }));
    Print("100 changes, position", Once([&] {
              for (std::size_t i = 0; i < 100; ++i) {
                  AddMessage(opened.Folder(), count + i);
                  Require(CountOf(*table) == count + i + 1, "the rows after a change");
              }
          }),
          Once([&] {
              for (std::size_t i = 0; i < 100; ++i)
                  sqlite.Ask(kIds + "ORDER BY subject_key, id LIMIT 1");
          }));
}

// A folder that searches the one with the messages, which it lies in.
ComPtr<IMAPIFolder> MakeSearch(IMAPIFolder& folder, SRestriction& restriction)
{
    char name[] = "Found";
    ComPtr<IMAPIFolder> search;
    Require(SUCCEEDED(folder.CreateFolder(FOLDER_SEARCH, name, nullptr, nullptr, 0, search.Put())),
            "CreateFolder");
    SPropValue* id = nullptr;
    Require(SUCCEEDED(HrGetOneProp(&folder, PR_ENTRYID, &id)), "PR_ENTRYID");
    ENTRYLIST where{1, &id->Value.bin};
    Require(SUCCEEDED(search->SetSearchCriteria(&restriction, &where, 0)), "SetSearchCriteria");
    MAPIFreeBuffer(id);
    return search;
}

// What takes all rows, and ten changes that follow.
void AskSearchAndHeadings(const OpenFolder& opened, Sqlite& sqlite)
{
    SPropValue value{};
    std::u16string part = u"77";
    SRestriction restriction = Holding(value, part, FL_SUBSTRING | FL_IGNORECASE);
    const ComPtr<IMAPIFolder> search = MakeSearch(opened.Folder(), restriction);
    const std::string found = kIds + "AND instr(subject_key, '77') > 0 ORDER BY id";
    ComPtr<IMAPITable> table;
    Print("open a search", MedianOf5([&] {
              Require(SUCCEEDED(search->GetContentsTable(0, table.Put())), "GetContentsTable");
              (void)CountOf(*table);
          }),
          MedianOf5([&] { sqlite.Ask(found); }));
    const ComPtr<IMAPITable> headings = opened.Contents();
    SizedSSortOrderSet(1, order) = {1, 1, 1, {{PR_SENDER_NAME_W, TABLE_SORT_ASCEND}}};
    const std::string sorted = kIds + "ORDER BY lower(sender_name), id";
    Print("sort with headings", MedianOf5([&] {
              Require(SUCCEEDED(headings->SortTable(reinterpret_cast<LPSSortOrderSet>(&order), 0)),
                      "SortTable");
          }),
          MedianOf5([&] { sqlite.Ask(sorted); }));
    const auto change = [&](IMAPITable& which) {
        for (std::size_t i = 0; i < 10; ++i) {
            AddMessage(opened.Folder(), i);
            (void)CountOf(which);
        }
    };
    const auto askTen = [&](const std::string& sql) {
        for (std::size_t i = 0; i < 10; ++i)
            sqlite.Ask(sql);
    };
    Print("10 changes, a search", Once([&] { change(*table); }), Once([&] { askTen(found); }));
    Print("10 changes, headings", Once([&] { change(*headings); }), Once([&] { askTen(sorted); }));
}

void Run(std::size_t count, const std::filesystem::path& directory)
{
    std::filesystem::create_directories(directory);
    const std::string store = directory / "store.sqlite";
    const OpenFolder opened(store, directory / "config", "Inbox");
    const Cost filled = Once([&] {
        for (std::size_t i = 0; i < count; ++i)
            AddMessage(opened.Folder(), i);
    });
    const double peakBefore = PeakMegabytes();
    {
        const std::string plain = directory / "plain.sqlite";
        Sqlite sqlite(plain);
        sqlite.Run(
            "PRAGMA auto_vacuum=INCREMENTAL; PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
            " PRAGMA wal_autocheckpoint=4000");
        sqlite.Run(
            "CREATE TABLE message (id INTEGER PRIMARY KEY AUTOINCREMENT, guid BLOB NOT NULL UNIQUE, "
            "folder_id,"
            " associated, version, created, modified, flags, status, size, message_class, subject, "
            "subject_prefix,"
            " normal_subject, sender_name, sent_for_name, display_to, display_cc, display_bcc, submitted,"
            " delivered, importance, search_key, subject_key);"
            "CREATE INDEX message_of_folder ON message (folder_id, associated, id, flags);"
            "CREATE INDEX message_by_delivery ON message (folder_id, associated, delivered);"
            "CREATE INDEX message_by_subject ON message (folder_id, associated, subject_key);"
            "CREATE TABLE part (id INTEGER PRIMARY KEY AUTOINCREMENT, message_id, parent_id, number, "
            "properties,"
            " recipients, UNIQUE (message_id, parent_id, number));"
            "CREATE TABLE change (number INTEGER PRIMARY KEY AUTOINCREMENT, event, kind, object_id, "
            "object_guid,"
            " parent_id, old_parent_id, associated)");
        sqlite.Run("ATTACH '" + store + "' AS original");
        Print("import", filled, Once([&] { sqlite.CopyRows(count); }));
        std::printf("%-22s store %9.0f a second   sqlite file %.0f MB, store %.0f MB\n", "",
                    static_cast<double>(count) / filled.wall,
                    static_cast<double>(std::filesystem::file_size(plain)) / 1e6,
                    static_cast<double>(std::filesystem::file_size(store)) / 1e6);
    }
    Sqlite sqlite(store);
    AskBoth(opened, sqlite, count);
    AskSearchAndHeadings(opened, sqlite);
    std::printf("peak_MB before the questions %.0f, at the end %.0f\n", peakBefore, PeakMegabytes());
}

}  // namespace
}  // namespace quorvane::bench

int main(int count, char** arguments)
{
    if (count != 2 && count != 3) {
        std::fprintf(stderr, "usage: store_tables MESSAGES [DIRECTORY]\n");
        return 2;
    }
    const std::filesystem::path directory =
        count == 3 ? std::filesystem::path(arguments[2])
                   : std::filesystem::temp_directory_path() / ("store-tables-" + std::to_string(getpid()));
    quorvane::bench::Run(std::strtoull(arguments[1], nullptr, 10), directory);
    std::filesystem::remove_all(directory);
    return 0;
}
