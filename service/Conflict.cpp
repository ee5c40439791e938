#include "service/Conflict.h"

#include "service/JsonText.h"

namespace Cli::Service {

char const* text(ConflictKind kind) {
  switch (kind) {
    case ConflictKind::value: return "value";
    case ConflictKind::existence: return "existence";
    case ConflictKind::order: return "order";
  }
  return "?";
}

namespace {

std::string sideText(Json const& content) { return content.is_null() ? "none" : shortText(content, 120); }

}  // namespace

std::string text(Conflict const& c) {
  std::string line = c.path.text() + " (" + text(c.kind) + "): was " + sideText(c.ancestor) + ", session " +
                     sideText(c.session) + ", running " + sideText(c.running);
  if (c.target) line += "; target " + c.target->text() + " was deleted";
  for (std::size_t i = 0; i < c.nodes.size(); ++i) line += (i == 0 ? "; changed: " : ", ") + c.nodes[i].text();
  return line;
}

}  // namespace Cli::Service
