// The console's page, scripts (the page's and its texts in each language) and style, compiled
// into the program (cmake/QuorEmbedFiles.cmake).
#pragma once

namespace quor::console {
extern const char kIndexHtml[];
extern const char kConsoleJs[];
extern const char kConsoleTextsJs[];
extern const char kConsoleCss[];
}  // namespace quor::console
