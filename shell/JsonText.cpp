#include "JsonText.h"

#include <optional>

#include "Words.h"

namespace Shell {

using Cli::Service::Json;

namespace {

// The text of a string that is not UTF-8, which JSON holds as the digits of its bytes.
std::optional<std::string> bytesOf(Json const& content) {
  if (!content.is_object() || content.size() != 1 || !content.begin()->is_string()) return std::nullopt;
  if (content.begin().key() != "$bytes") return std::nullopt;
  auto const& digits = content.begin()->get_ref<std::string const&>();
  if (digits.find_first_not_of("0123456789abcdef") != std::string::npos) return std::nullopt;
  std::string text;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    text += static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16));
  return text;
}

bool isList(Json const& content) {
  if (!content.is_array()) return false;
  for (Json const& item : content)
    if (item.is_structured()) return false;
  return true;
}

void appendLines(Json const& content, std::string const& indent, std::vector<std::string>& lines) {
  for (auto const& [name, value] : content.items()) {
    std::string const key = indent + (content.is_array() ? "[" + std::string(name) + "]" : shown(std::string(name)));
    if (value.is_structured() && !isList(value) && !isBytes(value)) {
      lines.push_back(value.empty() ? key + ": {}" : key);
      appendLines(value, indent + "  ", lines);
    } else {
      lines.push_back(key + ": " + oneLine(value));
    }
  }
}

}  // namespace

bool isBytes(Json const& content) { return bytesOf(content).has_value(); }

std::string oneLine(Json const& content) {
  if (auto const bytes = bytesOf(content)) return shown(*bytes);
  if (content.is_null()) return "-";
  if (content.is_string()) {
    auto const& text = content.get_ref<std::string const&>();
    return text.empty() ? "\"\"" : shown(text);
  }
  if (!isList(content)) return shown(content.dump(-1, ' ', false, Json::error_handler_t::replace));
  std::string out;
  for (Json const& item : content) out += (out.empty() ? "" : " ") + oneLine(item);
  return content.empty() ? "-" : out;
}

std::vector<std::string> contentLines(Json const& content) {
  std::vector<std::string> lines;
  if (content.is_structured()) appendLines(content, "", lines);
  return lines;
}

std::vector<std::string> pieces(Cli::Service::Path const& path) {
  std::vector<std::string> out;
  bool inDirectory = false;
  for (auto const& step : path.steps) {
    if (!step.attr) {
      std::string const entry = shown(step.entry.view());
      if (inDirectory)
        out.back() += "/" + entry;
      else
        out.push_back(entry);
      inDirectory = true;
      continue;
    }
    inDirectory = false;
    out.push_back(step.attr->name().str() + (step.key ? " " + shown(step.keyText()) : ""));
  }
  return out;
}

}  // namespace Shell
