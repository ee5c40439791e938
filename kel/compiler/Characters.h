// The characters of model files, whatever the locale says.
#pragma once

namespace kelc {

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }
inline bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
inline bool isWord(char c) { return isLetter(c) || isDigit(c); }

}  // namespace kelc
