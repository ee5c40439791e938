#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Frame.h"

#include <algorithm>
#include <array>
#include <string>

#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

Frame::Frame(Kel::Entity& d, Kel::Entity const& s, Kel::String8 const& path)
    : dest(d), src(s), plan(Plan::of(*d.type(), *s.type())) {
  extras().path = path;
}

namespace {

// Joins the parts of a path; with `member`, also "/" and a name, which may be empty.
Kel::String8 joined(std::string_view parent, std::string_view separator, std::string_view attr, bool member,
                    std::string_view name) {
  std::size_t const size = parent.size() + separator.size() + attr.size() + (member ? 1 + name.size() : 0);
  std::array<char, 256> room;
  std::string large;
  if (size > room.size()) large.resize(size);
  char* const text = large.empty() ? room.data() : large.data();
  char* end = text;
  auto const append = [&](std::string_view part) { end = std::copy(part.begin(), part.end(), end); };
  append(parent);
  append(separator);
  append(attr);
  if (member) {
    append("/");
    append(name);
  }
  return Kel::String8(std::string_view(text, size));
}

}  // namespace

Kel::String8 Frame::childPath(Kel::KelAttr const& attr, Kel::Entity const& srcChild) {
  bool const member = attr.isCollection() && !srcChild.name().empty();
  return joined(path(), ".", attr.name(), member, srcChild.name());
}

Kel::String8 const& Frame::path() {
  FrameExtras& e = extras();
  // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): a frame without one above has a path
  if (!e.path) e.path = up_->childPath(through_->attr, src);
  return *e.path;
}

Kel::String8 const& Frame::makeLogPath(EntityCopy const& ec, Kel::U64 generation) {
  FrameExtras& e = extras();
  Kel::Entity const* const top = ec.dest().ptr();
  // A queue's member without parameters has no name; its path has its index instead.
  bool const byPlace = up_ && through_->attr.isQueue() && dest.type()->ctorArgs().empty();
  Kel::String8 path;
  if (top && up_ && dest.parent() == &up_->dest && !byPlace) {
    Kel::KelAttr const& attr = *through_->destAttr;
    if (&up_->dest == top)
      path = joined({}, {}, attr.name(), attr.isCollection(), dest.name());
    else if (Kel::String8 const& above = up_->logPath(ec, generation); !above.empty())
      path = joined(above, ".", attr.name(), attr.isCollection(), dest.name());
  }
  if (top && path.empty()) path = pathBelow(*top, dest);
  if (top && path.empty()) path = pathBelow(Kel::Ptr<Kel::Entity const>(top), dest.fullName());
  e.logPath = path;
  e.logPathAt = generation;
  return e.logPath;
}

void Frame::hold() {
  for (Frame* f = this; f; f = f->up_) {
    FrameExtras& e = f->extras();
    if (e.dest) continue;
    e.dest = f->destPtr();
    e.src = f->srcPtr();
  }
}

}  // namespace Cli::Session
