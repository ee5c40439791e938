#include "examples/config_db/Keys.h"

#include "examples/config_db/Values.h"

namespace ConfigDb {

std::vector<std::string> splitKey(std::vector<KeyPart> const& parts, std::string_view text) {
  std::vector<std::string> texts(parts.size());
  bool const oneText = text.find('|') == std::string_view::npos;
  std::size_t first = 0, last = parts.size() - 1;
  if (oneText && parts.front().optional) first = last;
  if (oneText && !parts.back().child.empty()) last = first;  // the key of the parent
  for (std::size_t i = first; i <= last; ++i) {
    std::size_t const bar = i == last ? std::string_view::npos : text.find('|');
    texts[i] = trimmed(text.substr(0, bar));
    if (texts[i].empty() || (i < last && bar == std::string_view::npos)) return {};
    if (i < last) text.remove_prefix(bar + 1);
  }
  return texts;
}

std::string canonicalPart(Kel::KelType const& type, KeyPart const& part, std::string const& text) {
  if (part.attribute.empty()) return text;
  Kel::KelAttr const& attr = *type.getAttr(part.attribute);
  return attr.isPtr() ? text : canonicalText(*attr.type(), text).value_or(text);
}

}  // namespace ConfigDb
