// The samples in documents.
#pragma once

#include <map>
#include <sstream>
#include <string>

#include "Files.h"

namespace Tests {

// The code blocks of a document, by what stands behind the three backquotes; blocks of one name are one text.
inline std::map<std::string, std::string> codeBlocks(std::filesystem::path const& document) {
  std::istringstream in(readFile(document));
  std::map<std::string, std::string> texts;
  std::string* block = nullptr;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("```", 0) == 0)
      block = block ? nullptr : &texts[line.substr(3)];
    else if (block)
      *block += line + "\n";
  }
  return texts;
}

}  // namespace Tests
