// Attribute logs, taken as they are and with a checksum that is right.
#include "CliSession/CliSession.h"
#include "Fuzz.h"
#include "Kel/AttrAccess.h"
#include "Kel/AttrLog.h"
#include "Kel/Exception.h"
#include "Plant.h"

namespace {

// The tree that paths lead into; nothing that is read may change it.
struct Context {
  Kel::Dir::Ptr root = Kel::dirFactory("");
  std::string image;
  Context() {
    Plant::Hall::_fwkType();
    root->newEntity("Plant::Hall", "hall");
    root->newEntity("Plant::Bolt", "bolt");
    image = Kel::writeAttrLog(*root);
  }
};

Context& context() {
  static Context shared;
  return shared;
}

// Entities that were read may keep each other alive, as constructor parameters that point at owners do.
void takeApart(Kel::Entity::Ptr top) {
  std::vector<Kel::Entity::Ptr> all{std::move(top)};
  auto const keep = [](Kel::Entity::Ptr child, void* list) {
    static_cast<std::vector<Kel::Entity::Ptr>*>(list)->push_back(std::move(child));
  };
  for (std::size_t i = 0; i < all.size(); ++i) {
    Kel::Entity::Ptr const e = all[i];
    for (Kel::KelAttr const* attr : e->type()->ptrAttrs()) attr->access().dropPointers(*e);
    for (Kel::KelAttr const* attr : e->type()->ownAttrs()) attr->access().takeChildren(*e, keep, &all);
  }
  for (auto const& e : all) e->parentIs(nullptr);
}

// What was read, written; empty when it leads into the context's tree, which it is not part of.
std::string written(Kel::Entity const& e) {
  try {
    return Kel::writeAttrLog(e);
  } catch (Kel::EntityIdUnavailableException const&) {
    return {};
  }
}

// Whether it is a log; then it is the same log after having been written and read.
bool tryLog(std::string const& log) {
  Kel::Entity::Ptr top;
  try {
    top = Kel::readAttrLog(log, context().root.ptr());
  } catch (Kel::AttrLogRecordException const& e) {
    FUZZ_LAW(e.message().pos("attribute log, offset ") == 0, e.what());
  } catch (Kel::AttrLogEntityException const& e) {
    FUZZ_LAW(e.message().pos("attribute log, offset ") == 0, e.what());
  }
  if (top) {
    std::string const again = written(*top);
    if (!again.empty()) {
      Kel::Entity::Ptr const twin = Kel::readAttrLog(again);
      FUZZ_LAW(written(*twin) == again, top->typeName().str());
      takeApart(twin);
    }
  }
  bool const read = top != nullptr;
  if (top) takeApart(std::move(top));
  FUZZ_LAW(Kel::writeAttrLog(*context().root) == context().image, "the tree beside it");
  return read;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > 10000) return 0;
  std::string log(reinterpret_cast<char const*>(data), size);
  bool const whole = tryLog(log);
  if (size < 4) return 0;
  Kel::U32 const sum = Kel::attrLogChecksum(std::string_view(log).substr(0, size - 4));
  std::string repaired = log;
  for (std::size_t i = 0; i < 4; ++i) repaired[size - 1 - i] = static_cast<char>(sum >> 8 * i);
  FUZZ_LAW(!whole || repaired == log, "the checksum is wrong");
  tryLog(repaired);
  return 0;
}
