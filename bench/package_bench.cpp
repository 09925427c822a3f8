// Packages of many items: made in place, added to as a sender does (open, one item, close), read whole,
// emptied element by element; libgsf, which can make and read, beside it in the same run, and as the floor
// the writing of the same bytes. `bench/run` gives each its own process, so that peak_MB is its own.
#include <benchmark/benchmark.h>
#include <gsf/gsf.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "bench/counted_calls.h"

#include "bench/package_workload.h"
#include "quorvane3/com.h"
#include "quorvane3/storage.h"

namespace quorvane::bench {

namespace {

constexpr DWORD kCreate = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kOpen = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;

std::filesystem::path BenchFile()
{
    return std::filesystem::temp_directory_path() / ("quorvane-bench-" + std::to_string(getpid()) + ".qvt");
}

double PeakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void Require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "package_bench: %s failed\n", what);
    std::abort();
}

const PartNames<OLECHAR>& Names()
{
    return kNames<OLECHAR>;
}

void WriteStream(IStorage& storage, const OLECHAR* name, std::size_t size, std::size_t seed)
{
    ComPtr<IStream> stream;
    Require(SUCCEEDED(storage.CreateStream(name, kCreate, 0, 0, stream.Put())), "CreateStream");
    ULONG written = 0;
    Require(
        SUCCEEDED(stream->Write(StreamBytes(seed), static_cast<ULONG>(size), &written)) && written == size,
        "Write");
}

ComPtr<IStorage> MakeStorage(IStorage& parent, const OLECHAR* name)
{
    ComPtr<IStorage> storage;
    Require(SUCCEEDED(parent.CreateStorage(name, kCreate, 0, 0, storage.Put())), "CreateStorage");
    return storage;
}

void WriteItem(IStorage& items, std::size_t item)
{
    const ComPtr<IStorage> storage = MakeStorage(items, ItemName<OLECHAR>(item).data());
    WriteStream(*storage, Names().contents.data(), kContentsSize, item);
    const ComPtr<IStorage> message = MakeStorage(*storage, Names().message.data());
    for (std::size_t i = 0; i < kMessageStreams; ++i)
        WriteStream(*message, Names().streams[i].data(), MessageStreamSize(i), item + i);
    for (const Name<OLECHAR>& part : Names().parts) {
        const ComPtr<IStorage> sub = MakeStorage(*message, part.data());
        for (std::size_t i = 0; i < kPartStreams; ++i)
            WriteStream(*sub, Names().streams[i].data(), kPartStreamSize, item + i);
    }
}

void CreatePackage(std::size_t items)
{
    ComPtr<IStorage> root;
    Require(SUCCEEDED(StgCreateDocfile(Widen(BenchFile().string()).c_str(), kCreate, 0, root.Put())),
            "StgCreateDocfile");
    const ComPtr<IStorage> version = MakeStorage(*root, OLESTR("1.0"));
    const ComPtr<IStorage> place = MakeStorage(*version, OLESTR("Items"));
    for (std::size_t item = 0; item < items; ++item)
        WriteItem(*place, item);
}

// The storages above the items: those that are opened in them end with them.
struct ItemsPath {
    ComPtr<IStorage> root;
    ComPtr<IStorage> version;
};

ComPtr<IStorage> OpenItems(ItemsPath& path)
{
    Require(SUCCEEDED(StgOpenStorage(Widen(BenchFile().string()).c_str(), nullptr, kOpen, nullptr, 0,
                                     path.root.Put())),
            "StgOpenStorage");
    ComPtr<IStorage> items;
    Require(SUCCEEDED(path.root->OpenStorage(OLESTR("1.0"), nullptr, kOpen, nullptr, 0, path.version.Put())),
            "OpenStorage");
    Require(SUCCEEDED(path.version->OpenStorage(OLESTR("Items"), nullptr, kOpen, nullptr, 0, items.Put())),
            "OpenStorage");
    return items;
}

std::size_t ReadStorage(IStorage& storage, std::vector<char>& block)
{
    ComPtr<IEnumSTATSTG> elements;
    Require(SUCCEEDED(storage.EnumElements(0, nullptr, 0, elements.Put())), "EnumElements");
    std::size_t total = 0;
    for (STATSTG stat{}; elements->Next(1, &stat, nullptr) == S_OK; CoTaskMemFree(stat.pwcsName)) {
        if (stat.type == STGTY_STORAGE) {
            ComPtr<IStorage> sub;
            Require(SUCCEEDED(storage.OpenStorage(stat.pwcsName, nullptr, kOpen, nullptr, 0, sub.Put())),
                    "OpenStorage");
            total += ReadStorage(*sub, block);
            continue;
        }
        ComPtr<IStream> stream;
        Require(SUCCEEDED(storage.OpenStream(stat.pwcsName, nullptr, STGM_SHARE_EXCLUSIVE, 0, stream.Put())),
                "OpenStream");
        ULONG count = 0;
        while (SUCCEEDED(stream->Read(block.data(), static_cast<ULONG>(block.size()), &count)) && count > 0)
            total += count;
    }
    return total;
}

std::size_t ReadPackage()
{
    ItemsPath path;
    const ComPtr<IStorage> items = OpenItems(path);
    std::vector<char> block(64 * 1024);
    return ReadStorage(*items, block);
}

void EmptyPackage()
{
    ItemsPath path;
    const ComPtr<IStorage> items = OpenItems(path);
    ComPtr<IEnumSTATSTG> elements;
    Require(SUCCEEDED(items->EnumElements(0, nullptr, 0, elements.Put())), "EnumElements");
    for (STATSTG stat{}; elements->Next(1, &stat, nullptr) == S_OK; CoTaskMemFree(stat.pwcsName))
        Require(SUCCEEDED(items->DestroyElement(stat.pwcsName)), "DestroyElement");
}

// items: how many of them an iteration had to do with.
void Report(benchmark::State& state, std::int64_t items)
{
    state.counters["us_per_item"] =
        benchmark::Counter(static_cast<double>(items) * 1e-6,
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["peak_MB"] = PeakMegabytes();
    std::filesystem::remove(BenchFile());
}

void ReportCalls(benchmark::State& state, std::uint64_t calls, std::int64_t items)
{
    state.counters["calls_per_item"] =
        static_cast<double>(calls) / static_cast<double>(state.iterations() * items);
}

void PackageCreate(benchmark::State& state)
{
    const std::uint64_t before = CountedCalls();
    for (auto _ : state)
        CreatePackage(static_cast<std::size_t>(state.range(0)));
    ReportCalls(state, CountedCalls() - before, state.range(0));
    Report(state, state.range(0));
}

// The sender's road: the package is closed between two items.
void PackageAdd(benchmark::State& state)
{
    auto item = static_cast<std::size_t>(state.range(0));
    CreatePackage(item);
    const std::uint64_t before = CountedCalls();
    for (auto _ : state) {
        ItemsPath path;
        const ComPtr<IStorage> items = OpenItems(path);
        WriteItem(*items, item++);
    }
    ReportCalls(state, CountedCalls() - before, 1);
    Report(state, 1);
}

// What no way of making a package can go below: its bytes are written once.
void PackageBytes(benchmark::State& state)
{
    CreatePackage(static_cast<std::size_t>(state.range(0)));
    const std::uintmax_t size = std::filesystem::file_size(BenchFile());
    const std::vector<char> block(std::size_t{1} << 20, 'x');
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove(BenchFile());
        state.ResumeTiming();
        std::ofstream file(BenchFile(), std::ios::binary);
        for (std::uintmax_t done = 0; done < size; done += block.size())
            file.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    Report(state, state.range(0));
}

void PackageRead(benchmark::State& state)
{
    CreatePackage(static_cast<std::size_t>(state.range(0)));
    const std::uint64_t before = CountedCalls();
    for (auto _ : state)
        benchmark::DoNotOptimize(ReadPackage());
    ReportCalls(state, CountedCalls() - before, state.range(0));
    Report(state, state.range(0));
}

void PackageCreateAndRead(benchmark::State& state)
{
    for (auto _ : state) {
        CreatePackage(static_cast<std::size_t>(state.range(0)));
        benchmark::DoNotOptimize(ReadPackage());
    }
    Report(state, state.range(0));
}

void PackageEmpty(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        CreatePackage(static_cast<std::size_t>(state.range(0)));
        state.ResumeTiming();
        EmptyPackage();
    }
    Report(state, state.range(0));
}

// The peer.

void GsfStream(GsfOutfile* parent, const char* name, std::size_t size, std::size_t seed)
{
    GsfOutput* const stream = gsf_outfile_new_child(parent, name, FALSE);
    gsf_output_write(stream, size, StreamBytes(seed));
    gsf_output_close(stream);
    g_object_unref(stream);
}

void GsfItem(GsfOutfile* items, std::size_t item)
{
    const PartNames<char>& names = kNames<char>;
    auto* const storage = GSF_OUTFILE(gsf_outfile_new_child(items, ItemName<char>(item).data(), TRUE));
    GsfStream(storage, names.contents.data(), kContentsSize, item);
    auto* const message = GSF_OUTFILE(gsf_outfile_new_child(storage, names.message.data(), TRUE));
    for (std::size_t i = 0; i < kMessageStreams; ++i)
        GsfStream(message, names.streams[i].data(), MessageStreamSize(i), item + i);
    for (const Name<char>& part : names.parts) {
        auto* const sub = GSF_OUTFILE(gsf_outfile_new_child(message, part.data(), TRUE));
        for (std::size_t i = 0; i < kPartStreams; ++i)
            GsfStream(sub, names.streams[i].data(), kPartStreamSize, item + i);
        gsf_output_close(GSF_OUTPUT(sub));
        g_object_unref(sub);
    }
    for (GsfOutfile* done : {message, storage}) {
        gsf_output_close(GSF_OUTPUT(done));
        g_object_unref(done);
    }
}

void GsfCreatePackage(std::size_t items)
{
    GsfOutput* const file = gsf_output_stdio_new(BenchFile().c_str(), nullptr);
    Require(file != nullptr, "gsf_output_stdio_new");
    GsfOutfile* const root = gsf_outfile_msole_new(file);
    auto* const version = GSF_OUTFILE(gsf_outfile_new_child(root, "1.0", TRUE));
    auto* const place = GSF_OUTFILE(gsf_outfile_new_child(version, "Items", TRUE));
    for (std::size_t item = 0; item < items; ++item)
        GsfItem(place, item);
    for (GsfOutfile* done : {place, version, root}) {
        gsf_output_close(GSF_OUTPUT(done));
        g_object_unref(done);
    }
    g_object_unref(file);
}

std::size_t GsfReadStorage(GsfInfile* storage)
{
    std::size_t total = 0;
    const int count = gsf_infile_num_children(storage);
    for (int i = 0; i < count; ++i) {
        GsfInput* const child = gsf_infile_child_by_index(storage, i);
        Require(child != nullptr, "gsf_infile_child_by_index");
        if (GSF_IS_INFILE(child) && gsf_infile_num_children(GSF_INFILE(child)) >= 0) {
            total += GsfReadStorage(GSF_INFILE(child));
        } else {
            const auto size = static_cast<std::size_t>(gsf_input_size(child));
            if (size > 0 && gsf_input_read(child, size, nullptr))
                total += size;
        }
        g_object_unref(child);
    }
    return total;
}

void GsfReadPackage()
{
    GsfInput* const file = gsf_input_stdio_new(BenchFile().c_str(), nullptr);
    Require(file != nullptr, "gsf_input_stdio_new");
    GsfInfile* const root = gsf_infile_msole_new(file, nullptr);
    Require(root != nullptr, "gsf_infile_msole_new");
    benchmark::DoNotOptimize(GsfReadStorage(root));
    g_object_unref(root);
    g_object_unref(file);
}

void GsfCreate(benchmark::State& state)
{
    for (auto _ : state)
        GsfCreatePackage(static_cast<std::size_t>(state.range(0)));
    Report(state, state.range(0));
}

void GsfCreateAndRead(benchmark::State& state)
{
    for (auto _ : state) {
        GsfCreatePackage(static_cast<std::size_t>(state.range(0)));
        GsfReadPackage();
    }
    Report(state, state.range(0));
}

void Sizes(benchmark::internal::Benchmark* one)
{
    one->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(1);
}

BENCHMARK(PackageCreateAndRead)->Apply(Sizes);
BENCHMARK(GsfCreateAndRead)->Apply(Sizes);
BENCHMARK(GsfCreate)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(PackageBytes)->Apply(Sizes);
BENCHMARK(PackageCreate)->Apply(Sizes);
BENCHMARK(PackageAdd)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(100);
BENCHMARK(PackageRead)->Apply(Sizes);
BENCHMARK(PackageEmpty)->Apply(Sizes);

}  // namespace

}  // namespace quorvane::bench

int main(int argc, char** argv)
{
    gsf_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    gsf_shutdown();
    return 0;
}
