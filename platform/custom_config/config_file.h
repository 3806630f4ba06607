// Reads the text of a configuration file and finds what is wrong with it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KxNConfigFile {

struct Problem {
    std::string section;  ///< whose part of the program may not start; empty for all of them
    std::string text;     ///< one line that names file, line and key
    bool isBlocking;      ///< false when the section stays usable
};

struct Config {
    std::map<std::pair<std::string, std::string>, std::string, std::less<>> values;  ///< by section and key
    std::vector<Problem> problems;
};

/// Takes `text` apart: "[section]" and "key = value" lines, comments that begin with '#' or ';', empty lines. White
/// space around names and values does not count, nor does the line ending. `fileName` is for the problems' texts.
/// A value that is not possible, or of a key that is given again, is a problem; the first text of a key is kept.
Config parse(std::string_view text, const std::string& fileName);

/// Reads and parses the file at `path`. A missing file is an empty one; one that cannot be read is a problem of all.
Config read(const std::string& path);

}  // namespace KxNConfigFile
