#include "service/Path.h"

namespace Cli::Service {

std::string Path::text() const {
  std::string text;
  for (PathStep const& step : steps) {
    if (!step.attr) {
      if (!text.empty()) text += '/';
      text += step.entry.str();
      continue;
    }
    if (!text.empty()) text += '.';
    text += step.attr->name().str();
    if (step.key) text += '/' + step.key->text().str();
  }
  return text;
}

}  // namespace Cli::Service
