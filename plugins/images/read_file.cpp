// Reads whole files through the byte streams of the core.
#include "read_file.h"

#include <scansteps/stream.h>

#include <filesystem>

#include "picture.h"

namespace scansteps::imageio {

std::vector<std::uint8_t> readFile(const std::string& path)
{
    BIOfs file(path, BIOfs::Mode::Read);
    if (!file.isOpen()) throw DecodeError(file.reason());
    const std::filesystem::path name(std::u8string(path.begin(), path.end()));
    std::error_code error;
    std::vector<std::uint8_t> bytes;
    if (std::filesystem::is_regular_file(name, error)) {
        const std::uintmax_t size = std::filesystem::file_size(name, error);
        if (!error && size > kMaxFileBytes) throw DecodeError("the file is larger than 1 GiB");
        if (!error) bytes.resize(size);
    }
    try {
        file.read(bytes.data(), bytes.size());
        // Of a pipe everything, of a file what has been appended meanwhile.
        for (std::uint8_t byte = 0; !file.atEnd(); bytes.push_back(byte)) {
            if (bytes.size() == kMaxFileBytes) throw DecodeError("more than 1 GiB");
            file.read(&byte, 1);
        }
    } catch (const char* text) {
        throw DecodeError(file.failed() ? file.reason() : text);
    }
    return bytes;
}

}  // namespace scansteps::imageio
