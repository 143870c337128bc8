// Names, writing and committing of texture pages.
#include "mesh/texture_files.h"

#include "core/print.h"
#include "images/jpeg_file.h"
#include "mesh/texture_page.h"
#include "scansteps/error.h"
#include "scansteps/trouble.h"

namespace scansteps::mesh {

namespace {

bool hasTexture(const TexturedModel& model)
{
    return !model.pictures.empty() && !model.mesh.pixels.empty();
}

std::size_t lastSeparator(const std::string& path)
{
    return path.find_last_of("/\\") + 1;  // npos + 1 is 0
}

TexturePage makePage(const TexturedModel& model, const TextureLayout& layout, int number)
{
    if (!hasTexture(model)) return TexturePage(model.settings.width, 255);
    TexturePage page(model.settings.width);
    if (model.pictures.size() > 1)
        copyGroups(layout, number, model.pictures, page);
    else if (!copyPicture(model.pictures[0], page))
        print::line("the picture of " + std::to_string(model.pictures[0].width) + " x " +
                    std::to_string(model.pictures[0].height) + " is clipped to the texture's " +
                    std::to_string(page.width) + " x " + std::to_string(page.width));
    return page;
}

}  // namespace

std::string folderOf(const std::string& path)
{
    return path.substr(0, lastSeparator(path));
}

std::string baseName(const std::string& path, const char* lower, const char* upper)
{
    std::string name = path.substr(lastSeparator(path));
    std::size_t at = name.rfind(lower);
    if (at == std::string::npos) at = name.rfind(upper);
    return at == std::string::npos ? name : name.substr(0, at);
}

std::string textureName(const std::string& base, int number)
{
    return base + (number == 0 ? "" : "_" + std::to_string(number)) + ".jpg";
}

TextureLayout layOut(const TexturedModel& model)
{
    checkGeometry(model.mesh);
    if (model.pictures.size() < 2 || model.mesh.pixels.empty()) return singlePage(model.mesh);
    return layOutPages(model.mesh, model.pictures, model.settings);
}

std::vector<std::unique_ptr<AtomicFile>> writePages(const TexturedModel& model, const TextureLayout& layout,
                                                    const std::string& pathBase)
{
    std::vector<std::unique_ptr<AtomicFile>> files;
    if (!model.pictures.empty() && model.mesh.pixels.empty())
        print::line("the mesh has no \"Pixels\": its pictures are left out");
    if (layout.shrunk > 0)
        print::line(std::to_string(layout.shrunk) + " parts of pictures were shrunk to fit a texture page");
    for (int number = 0; number < layout.pages; ++number) {
        const std::string name = textureName(pathBase, number);
        auto file = std::make_unique<AtomicFile>(name);
        if (!file->isOpen()) {
            print::fileTrouble("can't open ", name);
            notifyHost(Trouble::PictureNotWritten, "CpuPly", name.c_str(), file->reason().c_str());
            continue;
        }
        const TexturePage page = makePage(model, layout, number);
        if (const std::string reason = images::writeJpeg(*file, 100, page.width, page.width, page.rgb);
            !reason.empty())
            failf("cannot write \"%.700s\": %.200s", name.c_str(), reason.c_str());
        files.push_back(std::move(file));
    }
    return files;
}

bool isModelOpen(const AtomicFile& file)
{
    if (!file.isOpen())
        notifyHost(Trouble::ModelNotWritten, "CpuPly", file.path().c_str(), file.reason().c_str());
    return file.isOpen();
}

void commitModel(const std::vector<std::unique_ptr<AtomicFile>>& pages,
                 std::initializer_list<AtomicFile*> rest)
{
    std::vector<AtomicFile*> files;
    for (const auto& page : pages) files.push_back(page.get());
    files.insert(files.end(), rest);
    AtomicFile::commitTogether(files);
}

}  // namespace scansteps::mesh
