// Writing a mesh of half a million vertices and a million triangles to memory-backed storage, beside a bare
// write of as many bytes and, with SCANSTEPS_BENCH_PEERS, a general model library.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "export/ply_writer.h"
#include "export/stl_writer.h"
#include "export/vertex_normals.h"
#if defined(SCANSTEPS_BENCH_ASSIMP)
#include <assimp/scene.h>

#include <assimp/Exporter.hpp>
#endif

namespace {

using namespace scansteps;

constexpr std::uint32_t kColumns = 1000;
constexpr std::uint32_t kRows = 500;

struct Model
{
    std::vector<float> vertices, colours, pixels;
    std::vector<std::uint32_t> indices;
    Mesh mesh() const { return {vertices, indices, colours, pixels, {}}; }
};

/// A torus, closed in both directions.
Model makeModel()
{
    Model model;
    for (std::uint32_t y = 0; y < kRows; ++y)
        for (std::uint32_t x = 0; x < kColumns; ++x) {
            const double u = 6.283185307 * x / kColumns, v = 6.283185307 * y / kRows;
            const double r = 120 + 40.3 * std::cos(v);
            for (const double c : {r * std::cos(u), r * std::sin(u), 40.3 * std::sin(v)})
                model.vertices.push_back(static_cast<float>(c));
            model.pixels.push_back(static_cast<float>(x * 2.03));
            model.pixels.push_back(static_cast<float>(y * 4.01));
            const std::uint32_t right = (x + 1) % kColumns, down = (y + 1) % kRows;
            const std::uint32_t a = y * kColumns + x, b = y * kColumns + right;
            const std::uint32_t c = down * kColumns + x, d = down * kColumns + right;
            for (const std::uint32_t i : {a, b, c, b, d, c}) model.indices.push_back(i);
            for (std::uint32_t i = 0; i < 6; ++i)
                model.colours.push_back(static_cast<float>((x * 7 + y * 13 + i * 31) % 256));
        }
    return model;
}

const Model& model()
{
    static const Model instance = makeModel();
    return instance;
}

std::string target(const char* name)
{
    const std::filesystem::path memory = "/dev/shm";
    const auto folder =
        std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
    return (folder / (std::string("scansteps_bench_") + name)).string();
}

void finish(benchmark::State& state, const std::string& path)
{
    state.counters["triangles/s"] = benchmark::Counter(static_cast<double>(model().indices.size() / 3),
                                                       benchmark::Counter::kIsIterationInvariantRate);
    if (std::filesystem::exists(path))
        state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                                static_cast<std::int64_t>(std::filesystem::file_size(path)));
    std::filesystem::remove(path);
}

template <typename Write>
void run(benchmark::State& state, const char* name, Write write)
{
    const Mesh mesh = model().mesh();
    const std::string path = target(name);
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove(path);  // every file is a new one
        state.ResumeTiming();
        OutputFile file(path);
        write(file, mesh);
        file.commit();
    }
    finish(state, path);
}

void ply(benchmark::State& state)
{
    run(state, "a.ply", [](OutputFile& file, const Mesh& mesh) { writePly(file, mesh); });
}
void stl(benchmark::State& state)
{
    run(state, "a.stl", [](OutputFile& file, const Mesh& mesh) { writeStl(file, mesh); });
}
/// One write of the bytes of an STL file, nothing computed.
void bareWrite(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes(model().mesh().triangleCount() * kStlEntrySize + 84, 'x');
    run(state, "a.raw", [&](OutputFile& file, const Mesh&) { file.write(std::span(bytes)); });
}

BENCHMARK(ply)->Unit(benchmark::kMillisecond);
BENCHMARK(stl)->Unit(benchmark::kMillisecond);
BENCHMARK(bareWrite)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
