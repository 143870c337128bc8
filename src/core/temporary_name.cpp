// Resolves symbolic links.
#include "core/temporary_name.h"

namespace scansteps {

namespace fs = std::filesystem;

fs::path followed(fs::path path)
{
    constexpr int kMaxLinks = 40;
    std::error_code error;
    for (int i = 0; i < kMaxLinks && fs::is_symlink(fs::symlink_status(path, error)); ++i) {
        const fs::path next = fs::read_symlink(path, error);
        if (error) break;
        path = path.parent_path() / next;
    }
    return path;
}

}  // namespace scansteps
