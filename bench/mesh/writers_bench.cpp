// Writing a mesh of half a million vertices and a million triangles to a file in memory, compared with a
// plain write of as many bytes and, with SCANSTEPS_BENCH_PEERS, a general model library.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/atomic_file.h"
#include "mesh/flt_writer.h"
#include "mesh/obj_writer.h"
#include "mesh/ply_writer.h"
#include "mesh/stl_writer.h"
#include "mesh/vertex_normals.h"
#include "support/ratio.h"
#if defined(SCANSTEPS_PEER_ASSIMP)
#include <assimp/scene.h>

#include <assimp/Exporter.hpp>
#endif

namespace {

using namespace scansteps;
using namespace scansteps::mesh;

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
        std::filesystem::remove(path);  // every iteration creates a new file
        state.ResumeTiming();
        AtomicFile file(path);
        write(file, mesh);
        file.commit();
    }
    finish(state, path);
}

void ply(benchmark::State& state)
{
    run(state, "a.ply", [](AtomicFile& file, const Mesh& mesh) { writePly(file, mesh); });
}
void stl(benchmark::State& state)
{
    run(state, "a.stl", [](AtomicFile& file, const Mesh& mesh) { writeStl(file, mesh); });
}
/// Speed of writing an STL file relative to a plain write of its bytes, alternating.
void stlOfBareWrite(benchmark::State& state)
{
    const Mesh mesh = model().mesh();
    const std::vector<std::uint8_t> bytes(mesh.triangleCount() * kStlEntrySize + 84, 'x');
    const std::string path = target("a.stl");
    const auto timeOf = [&](auto write) {
        std::filesystem::remove(path);
        const std::clock_t start = std::clock();
        AtomicFile file(path);
        write(file);
        file.commit();
        return double(std::clock() - start);
    };
    std::vector<double> ratios;
    for (auto _ : state) {
        const double bare = timeOf([&](AtomicFile& file) { file.write(std::span(bytes)); });
        ratios.push_back(bare / timeOf([&](AtomicFile& file) { writeStl(file, mesh); }));
    }
    state.counters["of_write"] = bench::median(ratios);
    std::filesystem::remove(path);
}

void obj(benchmark::State& state)
{
    run(state, "a.obj", [](AtomicFile& file, const Mesh& mesh) {
        const TexturedModel textured{mesh, {}, {2048, 1}};
        writeObj(file, textured, layOut(textured), "a");
    });
}
void flt(benchmark::State& state)
{
    const std::string path = target("a.flt");
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
        saveFlt(path, {model().mesh(), {}, {2048, 1}});
    }
    finish(state, path);
}

#if defined(SCANSTEPS_PEER_ASSIMP)
/// The mesh in the peer's form, with texture coordinates, so that its OBJ has them too.
std::unique_ptr<aiScene> assimpScene()
{
    const Mesh mesh = model().mesh();
    auto scene = std::make_unique<aiScene>();
    auto* out = new aiMesh;
    out->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    out->mNumVertices = static_cast<unsigned>(mesh.vertexCount());
    out->mVertices = new aiVector3D[mesh.vertexCount()];
    out->mTextureCoords[0] = new aiVector3D[mesh.vertexCount()];
    out->mNumUVComponents[0] = 2;
    for (std::size_t i = 0; i < mesh.vertexCount(); ++i) {
        out->mVertices[i] = {mesh.vertices[3 * i], mesh.vertices[3 * i + 1], mesh.vertices[3 * i + 2]};
        out->mTextureCoords[0][i] = {mesh.pixels[2 * i] / 2048, mesh.pixels[2 * i + 1] / 2048, 0};
    }
    out->mNumFaces = static_cast<unsigned>(mesh.triangleCount());
    out->mFaces = new aiFace[mesh.triangleCount()];
    for (std::size_t k = 0; k < mesh.triangleCount(); ++k) {
        out->mFaces[k].mNumIndices = 3;
        out->mFaces[k].mIndices =
            new unsigned[3]{mesh.indices[3 * k], mesh.indices[3 * k + 1], mesh.indices[3 * k + 2]};
    }
    scene->mNumMeshes = scene->mNumMaterials = 1;
    scene->mMeshes = new aiMesh* [1] { out };
    scene->mMaterials = new aiMaterial* [1] { new aiMaterial };
    scene->mRootNode = new aiNode;
    scene->mRootNode->mNumMeshes = 1;
    scene->mRootNode->mMeshes = new unsigned[1]{0};
    return scene;
}

void peer(benchmark::State& state, const char* format, const char* extension)
{
    const auto scene = assimpScene();
    const std::string path = target(extension);
    Assimp::Exporter exporter;
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove(path);
        state.ResumeTiming();
        if (exporter.Export(scene.get(), format, path) != aiReturn_SUCCESS)
            state.SkipWithError(exporter.GetErrorString());
    }
    finish(state, path);
    std::filesystem::remove(target("a.mtl"));
}
BENCHMARK_CAPTURE(peer, assimpPly, "ply", "a.ply")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(peer, assimpObj, "obj", "a.obj")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(peer, assimpStl, "stlb", "a.stl")->Unit(benchmark::kMillisecond);
#endif

BENCHMARK(ply)->Unit(benchmark::kMillisecond);
BENCHMARK(obj)->Unit(benchmark::kMillisecond);
BENCHMARK(flt)->Unit(benchmark::kMillisecond);
BENCHMARK(stl)->Unit(benchmark::kMillisecond);
BENCHMARK(stlOfBareWrite)->Iterations(25)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
