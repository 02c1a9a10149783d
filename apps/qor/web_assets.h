// The files of the live view's page, embedded into the tool when it is built
// from apps/qor/web (see embed_web.cmake), so the tool serves them with no
// file access at run time.
#ifndef QOR_TOOL_WEB_ASSETS_H
#define QOR_TOOL_WEB_ASSETS_H

#include <cstddef>
#include <string>

namespace qortool {

struct WebAsset {
    const char* path;  // "/view.js"
    const char* contentType;
    const unsigned char* data;
    std::size_t size;
};

// The asset served at `path`; null when there is none.
const WebAsset* FindWebAsset(const std::string& path);

}  // namespace qortool

#endif
