#pragma once

#include <string>

// Reads the text of a registry file with scanf's patterns, a second way next to the library's own
// parser. Returns what the library must write for it, or "code N" for a text that does not load.
std::string RenderedByScanf(const std::string& text);

// Returns the same from the library's parser.
std::string RenderedByLibrary(const std::string& text);
