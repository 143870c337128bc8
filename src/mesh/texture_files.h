// Texture pages as JPEG files beside a model: what OBJ and OpenFlight share.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "core/atomic_file.h"
#include "mesh/mesh.h"
#include "mesh/texture_layout.h"

namespace scansteps::mesh {

/// What a model with pictures is made of.
struct TexturedModel
{
    Mesh mesh;
    std::span<const PictureView> pictures;
    TextureSettings settings;
};

/// Name of a model's output without folder and without its extension: what its companion files begin with.
/// The extension is the last `lower` or `upper` (such as ".obj", ".OBJ") in the name; a name without keeps
/// all.
std::string baseName(const std::string& path, const char* lower, const char* upper);
/// The folder of `path` with its separator, or nothing.
std::string folderOf(const std::string& path);
/// Name of texture page `number`: BASE.jpg for the first, then BASE_1.jpg, BASE_2.jpg ...
std::string textureName(const std::string& base, int number);

/// Checks the model and lays it out: pages for several pictures, one page else.
TextureLayout layOut(const TexturedModel& model);

/// Writes all pages, JPEG of quality 100, and returns the files, to be committed with the model. A page that
/// cannot be created is reported ("can't open NAME" on standard error) and left out. Pages are made one after
/// the other: one page of memory, 3 bytes a pixel. A model without pictures, or without "Pixels", gets one
/// white page; notes about clipped and shrunk pictures are printed.
std::vector<std::unique_ptr<AtomicFile>> writePages(const TexturedModel& model, const TextureLayout& layout,
                                                    const std::string& pathBase);

/// Whether the file of a model is open; the host is told when it is not.
bool isModelOpen(const AtomicFile& file);

/// Commits the pages and the rest of the model as one.
void commitModel(const std::vector<std::unique_ptr<AtomicFile>>& pages,
                 std::initializer_list<AtomicFile*> rest);

}  // namespace scansteps::mesh
