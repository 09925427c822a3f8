// Hash stores of many records: loaded, saved whole, and changed one record at a time; beside them, in the
// same run, what else would keep such a map on the disk: a file that is rewritten at each change, and a table
// of SQLite. `bench/run` gives each its own process, so that peak_MB is its own.
//
// None of them waits for the disk at each change, except where its name says so.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/persist/hash_db.h"

namespace quorvane::bench {
namespace {

constexpr size_t kKeyDigits = 140;  // an entry identifier of 70 bytes
constexpr unsigned kStride = 7919;  // single changes go through the map in steps of this

void Require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "hash_bench: %s failed\n", what);
    std::abort();
}

double PeakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// The records of a folder of so many items.
std::string Key(size_t item)
{
    char digits[kKeyDigits + 1];
    std::snprintf(digits, sizeof(digits), "%0*llX", static_cast<int>(kKeyDigits),
                  0x9E3779B97F4A7C15ull * (item + 1));
    return digits;
}

std::string Hash(size_t item, unsigned version)
{
    char digits[33];
    std::snprintf(digits, sizeof(digits), "%016llx%016x", 0xD1B54A32D192ED03ull * (item + 1), version);
    return digits;
}

std::string Value(size_t item, unsigned version)
{
    return Hash(item, version) + "\t1";
}

void AppendString(std::string& bytes, const std::string& text)
{
    const auto size = static_cast<unsigned>(2 * text.size() + 2);
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(size >> shift);
    for (const char c : text) {
        bytes += c;
        bytes += '\0';
    }
    bytes.append(2, '\0');
}

// A directory with a hash file of so many records.
class Folder {
public:
    explicit Folder(size_t records)
        : path_(std::filesystem::temp_directory_path() / ("quorvane-hash-bench-" + std::to_string(getpid())))
    {
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
        std::ofstream file(File(), std::ios::binary);
        std::string bytes;
        for (size_t i = 0; i < records; ++i) {
            AppendString(bytes, Key(i));
            AppendString(bytes, Value(i, 0));
            if (bytes.size() > 1 << 20 || i + 1 == records) {
                file << bytes;
                bytes.clear();
            }
        }
        Require(file.good(), "making the file");
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    std::filesystem::path File() const { return path_ / "F.dat"; }
    std::filesystem::path Database() const { return path_ / "F.db"; }
    Bstr Place() const { return Bstr(Widen(path_.string() + "/")); }

private:
    const std::filesystem::path path_;
};

// How long each of many operations took.
class Durations {
public:
    template <class Operation>
    void Measure(Operation operation)
    {
        const auto start = std::chrono::steady_clock::now();
        operation();
        const auto elapsed = std::chrono::steady_clock::now() - start;
        microseconds_.push_back(std::chrono::duration<double, std::micro>(elapsed).count());
    }

    void Report(benchmark::State& state)
    {
        std::sort(microseconds_.begin(), microseconds_.end());
        state.counters["median_us"] = microseconds_[microseconds_.size() / 2];
        state.counters["p99_us"] = microseconds_[microseconds_.size() * 99 / 100];
        state.counters["max_us"] = microseconds_.back();
        state.counters["peak_MB"] = PeakMegabytes();
    }

private:
    std::vector<double> microseconds_;
};

void ReportWhole(benchmark::State& state, const Folder& folder, double idleMegabytes)
{
    const auto records = static_cast<double>(state.range(0));
    state.counters["records_per_s"] =
        benchmark::Counter(records, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(folder.File())) / (1 << 20);
    state.counters["peak_MB"] = PeakMegabytes();
    state.counters["B_per_record"] = (PeakMegabytes() - idleMegabytes) * (1 << 20) / records;
}

size_t Item(const benchmark::State& state, size_t change)
{
    return change * kStride % static_cast<size_t>(state.range(0));
}

// The hash store

void HashLoad(benchmark::State& state)
{
    const Folder folder(static_cast<size_t>(state.range(0)));
    const double idle = PeakMegabytes();
    for (auto _ : state) {
        CHashDB store(OLESTR("F"));
        Require(store.Init(folder.Place().Get()) == S_OK, "Init");
        state.PauseTiming();
        Require(store.Count() == static_cast<size_t>(state.range(0)), "counting the records");
        ReportWhole(state, folder, idle);
        state.ResumeTiming();
    }
}

// As after a scan: every record is set, and then saved at once.
void HashSave(benchmark::State& state)
{
    const auto records = static_cast<size_t>(state.range(0));
    const Folder folder(0);
    const double idle = PeakMegabytes();
    CHashDB store(OLESTR("F"));
    Require(store.Init(folder.Place().Get()) == S_OK, "Init");
    store.SuspendSave = true;
    for (size_t i = 0; i < records; ++i) {
        const Bstr hash(Widen(Hash(i, 0)));
        Require(store.SetHash(Bstr(Widen(Key(i))).Get(), hash.Get(), 1) == S_OK, "SetHash");
    }
    store.SuspendSave = false;
    for (auto _ : state)
        Require(store.SaveMap() == S_OK, "SaveMap");
    ReportWhole(state, folder, idle);
}

void HashSet(benchmark::State& state)
{
    const Folder folder(static_cast<size_t>(state.range(0)));
    CHashDB store(OLESTR("F"));
    Require(store.Init(folder.Place().Get()) == S_OK, "Init");
    Durations durations;
    size_t change = 0;
    for (auto _ : state) {
        const size_t item = Item(state, ++change);
        const Bstr key(Widen(Key(item)));
        const Bstr hash(Widen(Hash(item, static_cast<unsigned>(change))));
        durations.Measure([&] { Require(store.SetHash(key.Get(), hash.Get(), 1) == S_OK, "SetHash"); });
    }
    durations.Report(state);
}

// Every other change forgets an item, and the next one brings it back.
void HashForgetAndSet(benchmark::State& state)
{
    const Folder folder(static_cast<size_t>(state.range(0)));
    CHashDB store(OLESTR("F"));
    Require(store.Init(folder.Place().Get()) == S_OK, "Init");
    Durations durations;
    size_t change = 0;
    for (auto _ : state) {
        const size_t item = Item(state, change / 2);
        const Bstr key(Widen(Key(item)));
        const Bstr hash(Widen(Hash(item, 1)));
        BSTR const value = change++ % 2 ? hash.Get() : nullptr;
        durations.Measure([&] { Require(store.SetHash(key.Get(), value, 1) == S_OK, "SetHash"); });
    }
    durations.Report(state);
}

// As a session does that has one item to tell of: opens the store, sets one record, closes it.
void HashOpenSetClose(benchmark::State& state)
{
    const Folder folder(static_cast<size_t>(state.range(0)));
    Durations durations;
    size_t change = 0;
    for (auto _ : state) {
        const size_t item = Item(state, ++change);
        const Bstr key(Widen(Key(item)));
        const Bstr hash(Widen(Hash(item, static_cast<unsigned>(change))));
        durations.Measure([&] {
            CHashDB store(OLESTR("F"));
            Require(store.Init(folder.Place().Get()) == S_OK, "Init");
            Require(store.SetHash(key.Get(), hash.Get(), 1) == S_OK, "SetHash");
        });
    }
    durations.Report(state);
}

// A file that is rewritten at each change

using PlainMap = std::unordered_map<std::string, std::string>;

void WritePlain(const std::filesystem::path& path, const PlainMap& map)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    std::string bytes;
    for (const auto& [key, value] : map) {
        AppendString(bytes, key);
        AppendString(bytes, value);
        if (bytes.size() > 1 << 16) {
            file << bytes;
            bytes.clear();
        }
    }
    file << bytes;
    Require(file.good(), "writing the file");
}

std::string ReadPlainString(std::ifstream& file)
{
    unsigned char size[4] = {};
    if (!file.read(reinterpret_cast<char*>(size), sizeof(size)))
        return {};
    const size_t count = size[0] | (size[1] << 8) | (size[2] << 16) | (static_cast<size_t>(size[3]) << 24);
    std::string bytes(count, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(count));
    std::string text;
    for (size_t i = 0; i + 2 < count; i += 2)
        text += bytes[i];
    return text;
}

PlainMap ReadPlain(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    PlainMap map;
    for (std::string key = ReadPlainString(file); !key.empty(); key = ReadPlainString(file))
        map[key] = ReadPlainString(file);
    return map;
}

void PlainLoad(benchmark::State& state)
{
    const Folder folder(static_cast<size_t>(state.range(0)));
    const double idle = PeakMegabytes();
    for (auto _ : state) {
        const PlainMap map = ReadPlain(folder.File());
        state.PauseTiming();
        Require(map.size() == static_cast<size_t>(state.range(0)), "counting the records");
        ReportWhole(state, folder, idle);
        state.ResumeTiming();
    }
}

void PlainSet(benchmark::State& state)
{
    const Folder folder(static_cast<size_t>(state.range(0)));
    PlainMap map = ReadPlain(folder.File());
    Durations durations;
    size_t change = 0;
    for (auto _ : state) {
        const size_t item = Item(state, ++change);
        durations.Measure([&] {
            map[Key(item)] = Value(item, static_cast<unsigned>(change));
            WritePlain(folder.File(), map);
        });
    }
    durations.Report(state);
}

// A table of SQLite

class Table {
public:
    // The one that is there, or an empty one.
    Table(const Folder& folder, const char* synchronous)
    {
        Require(sqlite3_open(folder.Database().c_str(), &database_) == SQLITE_OK, "sqlite3_open");
        Run("PRAGMA journal_mode=WAL");
        Run((std::string("PRAGMA synchronous=") + synchronous).c_str());
        Run("CREATE TABLE IF NOT EXISTS hash (key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID");
        insert_ = Prepare("INSERT OR REPLACE INTO hash VALUES (?, ?)");
    }
    Table(const Folder& folder, size_t records, const char* synchronous) : Table(folder, synchronous)
    {
        Run("BEGIN");
        for (size_t i = 0; i < records; ++i)
            Set(Key(i), Value(i, 0));
        Run("COMMIT");
    }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table()
    {
        sqlite3_finalize(insert_);
        sqlite3_close(database_);
    }

    void Set(const std::string& key, const std::string& value)
    {
        sqlite3_bind_text(insert_, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        sqlite3_bind_text(insert_, 2, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
        Require(sqlite3_step(insert_) == SQLITE_DONE, "sqlite3_step");
        sqlite3_reset(insert_);
    }

    PlainMap ReadAll()
    {
        PlainMap map;
        sqlite3_stmt* const query = Prepare("SELECT key, value FROM hash");
        while (sqlite3_step(query) == SQLITE_ROW)
            map[reinterpret_cast<const char*>(sqlite3_column_text(query, 0))] =
                reinterpret_cast<const char*>(sqlite3_column_text(query, 1));
        sqlite3_finalize(query);
        return map;
    }

private:
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

    sqlite3* database_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
};

void SqliteLoad(benchmark::State& state)
{
    const Folder folder(0);
    Table table(folder, static_cast<size_t>(state.range(0)), "NORMAL");
    const double idle = PeakMegabytes();
    for (auto _ : state) {
        const PlainMap map = table.ReadAll();
        state.PauseTiming();
        Require(map.size() == static_cast<size_t>(state.range(0)), "counting the rows");
        ReportWhole(state, folder, idle);
        state.ResumeTiming();
    }
}

void SetRows(benchmark::State& state, const char* synchronous)
{
    const Folder folder(0);
    Table table(folder, static_cast<size_t>(state.range(0)), synchronous);
    Durations durations;
    size_t change = 0;
    for (auto _ : state) {
        const size_t item = Item(state, ++change);
        durations.Measure([&] { table.Set(Key(item), Value(item, static_cast<unsigned>(change))); });
    }
    durations.Report(state);
}

void SqliteSet(benchmark::State& state)
{
    SetRows(state, "NORMAL");
}

void SqliteSetAndSync(benchmark::State& state)
{
    SetRows(state, "FULL");
}

void SqliteOpenSetClose(benchmark::State& state)
{
    const Folder folder(0);
    {
        const Table filled(folder, static_cast<size_t>(state.range(0)), "NORMAL");
    }
    Durations durations;
    size_t change = 0;
    for (auto _ : state) {
        const size_t item = Item(state, ++change);
        durations.Measure([&] {
            Table table(folder, "NORMAL");
            table.Set(Key(item), Value(item, static_cast<unsigned>(change)));
        });
    }
    durations.Report(state);
}

constexpr int kFew = 100;
constexpr int kSmall = 1000;
constexpr int kUsual = 10000;
constexpr int kMiddle = 100000;
constexpr int kLarge = 1000000;
constexpr int kChanges = 10000;

BENCHMARK(HashLoad)->Arg(kLarge)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PlainLoad)->Arg(kLarge)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(SqliteLoad)->Arg(kLarge)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(HashSave)->Arg(kLarge)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(HashSet)->Arg(kSmall)->Arg(kMiddle)->Arg(kLarge)->Iterations(kChanges)->Unit(
    benchmark::kMicrosecond);
BENCHMARK(HashForgetAndSet)
    ->Arg(kSmall)
    ->Arg(kMiddle)
    ->Arg(kLarge)
    ->Iterations(kChanges)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(HashOpenSetClose)->Arg(kFew)->Arg(kUsual)->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK(HashOpenSetClose)->Arg(kLarge)->Iterations(5)->Unit(benchmark::kMicrosecond);
BENCHMARK(SqliteOpenSetClose)
    ->Arg(kFew)
    ->Arg(kUsual)
    ->Arg(kLarge)
    ->Iterations(200)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(SqliteSet)->Arg(kSmall)->Arg(kMiddle)->Arg(kLarge)->Iterations(kChanges)->Unit(
    benchmark::kMicrosecond);
BENCHMARK(SqliteSetAndSync)->Arg(kLarge)->Iterations(kChanges / 10)->Unit(benchmark::kMicrosecond);
BENCHMARK(PlainSet)->Arg(kSmall)->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK(PlainSet)->Arg(kMiddle)->Iterations(20)->Unit(benchmark::kMicrosecond);
BENCHMARK(PlainSet)->Arg(kLarge)->Iterations(3)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace quorvane::bench

BENCHMARK_MAIN();
