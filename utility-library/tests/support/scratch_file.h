#pragma once

#include "support/isolated.h"

#include <cstdio>
#include <string>

/// A file in a folder of its own. It is not there before it is written.
class ScratchFile : private ScratchFolder {
public:
    std::string path() const { return file("trace_config"); }

    /// Writes the text in place: the file stays the same one.
    void write(const std::string& text) const { ScratchFolder::write("trace_config", text, 0644); }

    /// Puts another file with this text in its place.
    void replace(const std::string& text) const {
        std::rename(ScratchFolder::write("other", text, 0644).c_str(), path().c_str());
    }
};
