// Texture pages as JPEG files in the folder of a model; shared by the OBJ and OpenFlight writers.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "core/atomic_file.h"
#include "mesh/mesh.h"
#include "mesh/texture_layout.h"

namespace scansteps::mesh {

/// A mesh with pictures and texture settings.
struct TexturedModel
{
    Mesh mesh;
    std::span<const PictureView> pictures;
    TextureSettings settings;
};

/// A model's file name without folder and extension; the names of its companion files begin with it. The
/// extension is the last `lower` or `upper` (such as ".obj", ".OBJ") in the name, if there is one.
std::string baseName(const std::string& path, const char* lower, const char* upper);
/// The folder of `path` including the separator, or an empty string.
std::string folderOf(const std::string& path);
/// Name of texture page `number`: BASE.jpg for the first, then BASE_1.jpg, BASE_2.jpg ...
std::string textureName(const std::string& base, int number);

/// Validates the model and lays it out: on several pages if it has several pictures, otherwise on one.
TextureLayout layOut(const TexturedModel& model);

/// Writes all pages as JPEG of quality 100 and returns the files, to be committed with the model. A page that
/// cannot be created is reported ("can't open NAME" on standard error) and omitted. Memory for only one page
/// is used, 3 bytes per pixel. A model without pictures or without "Pixels" gets one white page; clipped and
/// shrunk pictures are reported on standard output.
std::vector<std::unique_ptr<AtomicFile>> writePages(const TexturedModel& model, const TextureLayout& layout,
                                                    const std::string& pathBase);

/// Whether the file of a model is open; notifies the host if not.
bool isModelOpen(const AtomicFile& file);

/// Commits the pages and the other files of the model together.
void commitModel(const std::vector<std::unique_ptr<AtomicFile>>& pages,
                 std::initializer_list<AtomicFile*> rest);

}  // namespace scansteps::mesh
