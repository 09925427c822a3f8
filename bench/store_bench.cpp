// A store of many items: filled from an mbox by the program `quorvane`, scanned whole by the engine, listed
// by the program. Beside them, in the same run, the least that each can cost: the same mails through GMime's
// parser alone, the same rows into a table of SQLite and out of it. `bench/run` gives each its own process.
//
// The time is wall time. cpu_s is the processor's, of the program's process where the program does the work,
// and so is peak_MB. What it takes to make the store and the mails isn't counted.
#include <benchmark/benchmark.h>
#include <gmime/gmime.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "bench/open_folder.h"
#include "bench/store_workload.h"
#include "engine/change/find_changed_items.h"
#include "platform/com/variant.h"
#include "platform/event/event.h"
#include "quorvane3/mapi.h"

extern char** environ;

namespace quorvane::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kFolder[] = "Bench";
constexpr std::size_t kRowsOfAScan = 20;  // between two pauses

double SecondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// What some work has cost.
struct Cost {
    double wall = 0;  // seconds
    double cpu = 0;
    double peakMegabytes = 0;
};

Cost CostOf(Clock::time_point begun, const rusage& usage)
{
    return {std::chrono::duration<double>(Clock::now() - begun).count(),
            SecondsOf(usage.ru_utime) + SecondsOf(usage.ru_stime),
            static_cast<double>(usage.ru_maxrss) / 1024.0};
}

// Runs the program in a process of its own; its output goes nowhere.
Cost RunProgram(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), QUORVANE_PROGRAM);
    std::vector<char*> texts;
    for (std::string& argument : arguments)
        texts.push_back(argument.data());
    texts.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", 1, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", 1, 0);
    const Clock::time_point begun = Clock::now();
    pid_t process = 0;
    Require(posix_spawn(&process, texts[0], &files, nullptr, texts.data(), environ) == 0, "posix_spawn");
    posix_spawn_file_actions_destroy(&files);
    int status = 0;
    rusage usage{};
    Require(wait4(process, &status, 0, &usage) == process && status == 0, "quorvane");
    return CostOf(begun, usage);
}

// Does the work in this process.
template <class Work>
Cost Measure(Work work)
{
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_SELF, &before);
    const Clock::time_point begun = Clock::now();
    work();
    getrusage(RUSAGE_SELF, &after);
    Cost cost = CostOf(begun, after);
    cost.cpu -= SecondsOf(before.ru_utime) + SecondsOf(before.ru_stime);
    return cost;
}

void Report(benchmark::State& state, const Cost& cost)
{
    state.SetIterationTime(cost.wall);
    state.counters["cpu_s"] = cost.cpu;
    state.counters["peak_MB"] = cost.peakMegabytes;
    state.counters["us_per_item"] = cost.wall / static_cast<double>(state.range(0)) * 1e6;
}

// A directory with the mails as an mbox, and maybe a mailbox that holds them.
class Workplace {
public:
    explicit Workplace(std::size_t items) : items_(items)
    {
        std::filesystem::create_directories(path_);
        std::ofstream mbox(Mbox(), std::ios::binary);
        for (std::size_t mail = 0; mail < items; ++mail)
            mbox << "From sender@example.org Mon Jun  3 10:00:00 2024\n" << MailOf(mail) << "\n";
        Require(mbox.good(), "the mbox");
    }
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;
    ~Workplace() { std::filesystem::remove_all(path_); }

    std::string Mbox() const { return path_ / "mails.mbox"; }
    std::string Mailbox() const { return path_ / "mailbox"; }
    std::string Store() const { return path_ / "mailbox" / "store.sqlite"; }
    std::string File(const char* name) const { return path_ / name; }

    void MakeMailbox() const { RunProgram({"init", Mailbox(), "--name", "bench"}); }
    Cost Import() const { return RunProgram({"import", Mailbox(), kFolder, Mbox()}); }
    std::size_t Items() const { return items_; }

private:
    const std::filesystem::path path_ =
        std::filesystem::temp_directory_path() / ("quorvane-bench-" + std::to_string(getpid()));
    const std::size_t items_;
};

void StoreImport(benchmark::State& state)
{
    const Workplace place(static_cast<std::size_t>(state.range(0)));
    place.MakeMailbox();
    for (auto _ : state)
        Report(state, place.Import());
}

void StoreList(benchmark::State& state)
{
    const Workplace place(static_cast<std::size_t>(state.range(0)));
    place.MakeMailbox();
    place.Import();
    for (auto _ : state)
        Report(state, RunProgram({"list", place.Mailbox(), kFolder, "--json"}));
}

// One scan as after a TABLE_CHANGED; how many items it lists.
std::size_t Scan(const OpenFolder& folder, CHashDB& hashes)
{
    const ComPtr<IMAPITable> table = folder.Contents();
    SizedSPropTagArray(4, columns) = {
        4, {PR_ENTRYID, PR_MESSAGE_SIZE, PR_LAST_MODIFICATION_TIME, PR_MESSAGE_FLAGS}};
    Require(SUCCEEDED(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0)), "SetColumns");
    ScanResult found;
    Require(SUCCEEDED(CFindChangedItems(&hashes).getChangedItems(&folder.Store(), table.Get(), nullptr,
                                                                 nullptr, nullptr, false, &found, 0, false)),
            "getChangedItems");
    return found.CountChanged();
}

// pauses_s: what the pauses between the batches of a scan take on this machine, which is part of its time.
void ReportScan(benchmark::State& state, const Cost& cost)
{
    Report(state, cost);
    const std::size_t pauses = static_cast<std::size_t>(state.range(0)) / kRowsOfAScan;
    const Cost paused = Measure([&] {
        for (std::size_t i = 0; i < pauses; ++i)
            PumpingWait(1000);
    });
    state.counters["pauses_s"] = paused.wall;
    state.counters["without_pauses_s"] = cost.wall - paused.wall;
}

void StoreScan(benchmark::State& state, bool known)
{
    const Workplace place(static_cast<std::size_t>(state.range(0)));
    place.MakeMailbox();
    place.Import();
    const OpenFolder folder(place.Store(), place.File("config"), kFolder);
    CHashDB hashes{OleStringView(OLESTR("bench"))};
    Require(SUCCEEDED(hashes.Init(Bstr(FromUtf8(place.File(""))).Get())), "CHashDB::Init");
    if (known)
        Scan(folder, hashes);
    for (auto _ : state) {
        std::size_t listed = 0;
        const Cost cost = Measure([&] { listed = Scan(folder, hashes); });
        Require(listed == (known ? 0 : place.Items()), "the scan");
        ReportScan(state, cost);
    }
}

void StoreFirstScan(benchmark::State& state)
{
    StoreScan(state, false);
}

void StoreLaterScan(benchmark::State& state)
{
    StoreScan(state, true);
}

// The peers.

class Sqlite {
public:
    explicit Sqlite(const std::string& path)
    {
        Require(sqlite3_open(path.c_str(), &database_) == SQLITE_OK, "sqlite3");
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;
    ~Sqlite() { sqlite3_close(database_); }

    void Run(const char* sql)
    {
        Require(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
    }
    sqlite3_stmt* Prepare(const char* sql)
    {
        sqlite3_stmt* statement = nullptr;
        Require(sqlite3_prepare_v2(database_, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
        return statement;
    }

private:
    sqlite3* database_ = nullptr;
};

void InsertMails(Sqlite& database, std::size_t items)
{
    sqlite3_stmt* const insert =
        database.Prepare("INSERT INTO mail (subject, sender, modified, content) VALUES (?,?,?,?)");
    for (std::size_t mail = 0; mail < items; ++mail) {
        const std::string content = MailOf(mail);
        const std::string subject = SubjectOf(mail);
        const std::string sender = SenderOf(mail);
        sqlite3_bind_text(insert, 1, subject.data(), static_cast<int>(subject.size()), SQLITE_STATIC);
        sqlite3_bind_text(insert, 2, sender.data(), static_cast<int>(sender.size()), SQLITE_STATIC);
        sqlite3_bind_int64(insert, 3, static_cast<sqlite3_int64>(mail));
        sqlite3_bind_blob(insert, 4, content.data(), static_cast<int>(content.size()), SQLITE_STATIC);
        Require(sqlite3_step(insert) == SQLITE_DONE, "the insert");
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
}

void MakeTable(Sqlite& database)
{
    database.Run("PRAGMA journal_mode=WAL");
    database.Run("PRAGMA synchronous=NORMAL");
    database.Run("PRAGMA wal_autocheckpoint=4000");
    database.Run(
        "CREATE TABLE mail (id INTEGER PRIMARY KEY, subject TEXT, sender TEXT, modified INTEGER, content "
        "BLOB)");
    database.Run("CREATE INDEX by_time ON mail (modified)");
}

// A transaction a mail, as the store's deferred saves.
void SqliteInsert(benchmark::State& state)
{
    const Workplace place(0);
    for (auto _ : state) {
        Report(state, Measure([&] {
                   Sqlite database(place.File("plain.db"));
                   MakeTable(database);
                   InsertMails(database, static_cast<std::size_t>(state.range(0)));
                   database.Run("PRAGMA synchronous=FULL");
                   database.Run("UPDATE mail SET modified=modified WHERE id=1");
               }));
    }
}

void SqliteRead(benchmark::State& state)
{
    const Workplace place(0);
    {
        Sqlite database(place.File("plain.db"));
        MakeTable(database);
        database.Run("BEGIN");
        InsertMails(database, static_cast<std::size_t>(state.range(0)));
        database.Run("COMMIT");
    }
    for (auto _ : state) {
        Report(state, Measure([&] {
                   Sqlite database(place.File("plain.db"));
                   sqlite3_stmt* const select =
                       database.Prepare("SELECT id, subject, sender, modified, length(content) FROM mail");
                   std::size_t rows = 0;
                   while (sqlite3_step(select) == SQLITE_ROW) {
                       benchmark::DoNotOptimize(sqlite3_column_text(select, 1));
                       benchmark::DoNotOptimize(sqlite3_column_text(select, 2));
                       ++rows;
                   }
                   sqlite3_finalize(select);
                   Require(rows == static_cast<std::size_t>(state.range(0)), "the select");
               }));
    }
}

// Parses an mbox and decodes nothing.
std::size_t ParseMbox(const std::string& path)
{
    GMimeStream* const stream = g_mime_stream_file_open(path.c_str(), "r", nullptr);
    Require(stream != nullptr, "g_mime_stream_file_open");
    GMimeParser* const parser = g_mime_parser_new_with_stream(stream);
    g_mime_parser_set_format(parser, GMIME_FORMAT_MBOX);
    std::size_t mails = 0;
    while (!g_mime_parser_eos(parser)) {
        GMimeMessage* const message = g_mime_parser_construct_message(parser, nullptr);
        if (!message)
            break;
        benchmark::DoNotOptimize(g_mime_message_get_subject(message));
        g_object_unref(message);
        ++mails;
    }
    g_object_unref(parser);
    g_object_unref(stream);
    return mails;
}

void GmimeParse(benchmark::State& state)
{
    g_mime_init();
    const Workplace place(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::size_t mails = 0;
        Report(state, Measure([&] { mails = ParseMbox(place.Mbox()); }));
        Require(mails == place.Items(), "the parser");
    }
}

void AtItsSize(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(20000)->Unit(benchmark::kMillisecond)->Iterations(1)->UseManualTime();
}

BENCHMARK(StoreImport)->Apply(AtItsSize);
BENCHMARK(GmimeParse)->Apply(AtItsSize);
BENCHMARK(SqliteInsert)->Apply(AtItsSize);
BENCHMARK(StoreList)->Apply(AtItsSize);
BENCHMARK(SqliteRead)->Apply(AtItsSize);
BENCHMARK(StoreFirstScan)->Apply(AtItsSize);
BENCHMARK(StoreLaterScan)->Apply(AtItsSize);

}  // namespace

}  // namespace quorvane::bench

BENCHMARK_MAIN();
