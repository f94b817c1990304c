// Small files of the sandbox and the sample board in it.
#pragma once

#include <string>

// Makes the sample board at /quelt, both databases included.
void make_board();

inline const std::string kConfDb = "/quelt/db/config_local.sqlite";
inline const std::string kTempDb = "/quelt/db/temp_local.sqlite";

// Writes `text` to `path`, making its folders.
void write_file(const std::string& path, const std::string& text);

// Writes an executable shell script of these lines.
void write_script(const std::string& path, const std::string& lines);

// The whole text of a file; empty when there is none.
std::string read_file(const std::string& path);
