/// \file
/// The formats of a catalogue. For readCatalogue() alone.
#pragma once

#include "catalogue.h"

#include <string>
#include <vector>

namespace preview {

constexpr const char* MISSING_LANGUAGE = "the language is missing";

/// Lines of three fields separated by tabs; empty ones, and those with # in front, are skipped.
std::vector<Page> readTsv(const std::string& bytes);

/// A header that names the columns language, title and lines, in any order and beside others.
std::vector<Page> readCsv(const std::string& path, const std::string& bytes);

/// Translations; each message with a semicolon is a page, as the command socket takes it.
std::vector<Page> readPo(const std::string& path);

} // namespace preview
