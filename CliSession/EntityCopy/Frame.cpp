#include "CliSession/EntityCopy/Frame.h"

#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

Frame::Frame(Kel::Entity& d, Kel::Entity const& s, Kel::String8 const& path)
    : dest(d), src(s), plan(Plan::of(*d.type(), *s.type())), path_(path) {}

Kel::String8 childPath(Kel::String8 const& path, Kel::KelAttr const& attr, Kel::Entity const* child) {
  bool const named = child && attr.isCollection() && !(attr.isQueue() && child->name().empty());
  return named ? Kel::String8::concatForLog({path, ".", attr.name(), "/", child->name()})
               : Kel::String8::concatForLog({path, ".", attr.name()});
}

Kel::String8 const& Frame::path() {
  // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): a frame without one above has a path
  if (!path_) path_ = childPath(up->path(), through->attr, &src);
  return *path_;
}

Kel::String8 const& Frame::makeLogPath(EntityCopy const& ec, Kel::U64 generation) {
  // A member without a name, such as a queue's, has its place in its path.
  bool const named = up && dest.parent() == &up->dest && !(through->attr.isCollection() && dest.name().empty());
  Kel::String8 const above = named ? up->logPath(ec, generation) : Kel::String8();
  logPath_ = above.empty() ? pathBelow(ec.dest().ptr(), dest) : childPath(above, *through->destAttr, &dest);
  // An entity that is not below counts under what its name says, as in recordEdit.
  if (logPath_.empty() && !onlySeemsBelow(ec, dest)) logPath_ = pathBelow(ec.dest().ptr(), dest.fullName());
  logPathAt_ = generation;
  return logPath_;
}

void Frame::hold() {
  for (Frame* f = this; f && !f->heldDest_; f = f->up) {
    f->heldDest_ = &f->dest;
    f->heldSrc_ = &f->src;
  }
}

}  // namespace Cli::Session
