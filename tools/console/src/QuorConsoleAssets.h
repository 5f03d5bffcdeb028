// The console's page, script and style, compiled into the program (cmake/QuorEmbedFiles.cmake).
#pragma once

namespace quor::console {
extern const char kIndexHtml[];
extern const char kConsoleJs[];
extern const char kConsoleCss[];
}  // namespace quor::console
