// Output that is compared with a file that somebody has read.
#pragma once

#include <gtest/gtest.h>

#include "Files.h"

namespace Tests {

inline std::vector<std::string> linesOf(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

inline std::string textOf(std::vector<std::string> const& lines) {
  std::string text;
  for (std::string const& line : lines) text += line + "\n";
  return text;
}

// Fails with the lines that differ, and with the command that renews the file.
inline void expectGolden(std::filesystem::path const& path, std::string const& said) {
  std::string const expected = golden(path, said);
  if (expected == said) return;
  ::testing::TestInfo const& test = *::testing::UnitTest::GetInstance()->current_test_info();
  ADD_FAILURE() << path << " says otherwise:\n"
                << ::testing::internal::edit_distance::CreateUnifiedDiff(linesOf(expected), linesOf(said))
                << "To renew it: UPDATE_GOLDEN=1 bin/"
                << std::filesystem::read_symlink("/proc/self/exe").filename().string()
                << " --gtest_filter=" << test.test_suite_name() << "." << test.name();
}

}  // namespace Tests
