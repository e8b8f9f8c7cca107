#include "frame/SysRoot.h"

#include <cstdlib>

namespace Velmora {

std::string SysRoot::path(std::string const& fixedPath)
{
    char const* root = std::getenv("VELMORA_ROOT");
    if (root == nullptr || *root == '\0') {
        return fixedPath;
    }
    std::string prefix(root);
    // "/x/" + "/etc" must not give "/x//etc".
    while (prefix.size() > 1 && prefix.back() == '/') {
        prefix.pop_back();
    }
    if (prefix == "/") {
        return fixedPath;
    }
    return prefix + fixedPath;
}

} // namespace Velmora
