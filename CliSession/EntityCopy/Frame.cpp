#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Frame.h"

#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

Frame::Frame(Kel::Entity& d, Kel::Entity const& s, Kel::String8 const& path)
    : dest(d), src(s), plan(Plan::of(*d.type(), *s.type())) {
  extras().path = path;
}

namespace {

Kel::String8 joined(Kel::String8 const& parent, std::string_view separator, std::string_view attr, bool member,
                    std::string_view name) {
  std::string text;
  text.reserve(parent.chars() + attr.size() + name.size() + 2);
  text.append(parent.view()).append(separator).append(attr);
  if (member) text.append(1, '/').append(name);
  return Kel::String8(text);
}

}  // namespace

Kel::String8 Frame::childPath(Kel::KelAttr const& attr, Kel::Entity const& srcChild) {
  bool const member = attr.isCollection() && !srcChild.name().empty();
  return joined(path(), ".", attr.name(), member, srcChild.name());
}

Kel::String8 const& Frame::path() {
  Extras& e = extras();
  if (!e.path) e.path = up_->childPath(through_->attr, src);
  return *e.path;
}

Kel::String8 const& Frame::logPath(EntityCopy const& ec, Kel::U64 generation) {
  Extras& e = extras();
  if (e.logPath && e.logPathAt == generation) return *e.logPath;
  Kel::Entity const* top = ec.dest().ptr();
  // The members of a queue without a parameter are named by their place in it.
  bool const byPlace = up_ && through_->attr.isQueue() && dest.type()->ctorArgs().empty();
  bool const placed = up_ && dest.parent() == &up_->dest && !byPlace;
  if (!top) {
    e.logPath = Kel::String8();
  } else if (!placed) {
    e.logPath = pathBelow(*top, dest);
  } else if (&up_->dest == top) {
    e.logPath = joined({}, {}, through_->destAttr->name(), through_->attr.isCollection(), dest.name());
  } else {
    Kel::String8 const& above = up_->logPath(ec, generation);
    e.logPath = above.empty() ? above
                              : joined(above, ".", through_->destAttr->name(), through_->attr.isCollection(), dest.name());
  }
  e.logPathAt = generation;
  return *e.logPath;
}

void Frame::hold() {
  for (Frame* f = this; f; f = f->up_) {
    Extras& e = f->extras();
    if (!e.dest) {
      e.dest = f->destPtr();
      e.src = f->srcPtr();
    }
    if (!f->walking_ || e.destPin) continue;
    e.srcPin = f->walking_->access.iterator(f->walking_->attr, f->src, nullptr);
    e.destPin = f->walking_->access.iterator(f->walking_->attr, f->dest, nullptr);
  }
}

void Frame::walking(Step const* step) {
  walking_ = step;
  if (!extras_) return;
  extras_->srcPin.reset();
  extras_->destPin.reset();
}

}  // namespace Cli::Session
