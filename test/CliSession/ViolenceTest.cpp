// Reactors that pull the rug from under a copy. Whatever they do, the copy ends (perhaps with an exception) and nothing
// dangles, which is for the sanitizers to see; once they are gone another copy makes both sides equal.
#include <gtest/gtest.h>

#include "CliSession/RandomWorld.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;

void eraseBelow(Kel::Entity& e) {
  EntityPtr const held(&e);
  if (auto* dir = dynamic_cast<Kel::Dir*>(&e)) return dir->entryStateDelAll();
  Kel::GenericIf::Ptr const gif = Kel::GenericIf::ofEntity(held);
  for (Kel::KelAttr const* attr : e.type()->attributeQ()) {
    if (!attr->copiable() || !(attr->isCollection() || attr->instantiating())) continue;
    attr->isCollection() ? gif->attributeOp(Kel::AttributeOp::deleteAll, attr->id()) : gif->attributeDel(attr->id());
  }
}

void eraseTargets(Kel::Entity& e) {
  for (Kel::KelAttr const* attr : e.type()->ptrAttrs()) {
    if (attr->isCollection() || !attr->copiable()) continue;
    Kel::GenericIf::Ptr const target = Kel::GenericIf::ofEntity(EntityPtr(&e))->attribute(attr->id());
    if (target && target->entity() && !dynamic_cast<Kel::Dir*>(target->entity()->parent())) erase(*target->entity());
  }
}

struct ViolentWorld : RandomWorld {
  Generator dice;
  EntityCopy::Ptr ec;
  Kel::Dir::Ptr other = dir("other");
  std::vector<std::unique_ptr<Reactor>> reactors;
  std::string done;  // for whoever looks into a failure
  unsigned acts = 0;
  bool nested = false;  // a run within the run: the outer one will come to any root, which must be there
  bool busy = false;    // what a reactor does to the trees must not call others: the helpers are not made for that

  explicit ViolentWorld(unsigned seed) : RandomWorld(seed), dice(seed + 2000000), ec(copyFrom(src)) {
    for (auto it = status->rootIterator(); it; ++it)
      for (Kel::Entity* e : entitiesOf(*dest->entity(it.key())))
        if (dice.below(3) == 0) watch(*e);
    if (dice.below(4) == 0) watch(*ec->attributeEditLog());
  }
  void run() {
    EntityCopy::Ptr const running = ec;
    try {
      running->destIs(dest);
      running->doCopyPendingAttrs(false);
    } catch (Kel::Exception const& e) {
      done += "ended by: " + e.message().str() + "\n";
    }
    reactors.clear();
    ec = nullptr;
  }
  // Makes the session roots that are gone, and drops the pointers at what is.
  void repair() {
    for (auto it = status->rootIterator(); it; ++it) {
      for (Kel::Dir::Ptr const& in : {src, dest, other}) {
        bool const inSys = it.key() == "sys/annex";
        auto const at = inSys ? Kel::ptrCast<Kel::Dir>(in->entity("sys")) : in;
        if (!in->entity(it.key()))
          at->newEntity(status->rootTrie()->prefixTypename(it.key()), inSys ? Kel::Name("annex") : Kel::Name(it.key()));
      }
    }
    for (Kel::Dir::Ptr const& in : {src, dest, other}) mutate(in, dice, 0);
  }

 private:
  void watch(Kel::Entity& e) {
    reactors.push_back(std::make_unique<Reactor>(EntityPtrConst(&e), [this, &e, left = dice.below(4)]() mutable {
      if (busy) return;
      // What the copy makes is watched as well.
      Kel::Entity* const made = entitiesOf(e).back();
      if (made != &e && dice.below(4) == 0) watch(*made);
      if (left-- > 0 || ++acts > 4) return;
      left = 1000000;
      bool const swallows = dice.below(2) == 0;
      try {
        act(e);
        busy = false;
      } catch (Kel::Exception const&) {
        busy = false;
        if (!swallows) throw;
      }
    }));
  }
  Kel::Entity& any(Kel::Dir::Ptr const& in) {
    std::vector<Kel::Entity*> const all = entitiesOf(*in->entity(dice.below(2) ? "hall" : "sys/annex"));
    return *all[dice.below(all.size())];
  }
  // The session roots that are not being written must stay: copies assert that they are there.
  void eraseAny(Kel::Dir::Ptr const& in) {
    if (Kel::Entity& e = any(in); !dynamic_cast<Kel::Dir*>(e.parent())) erase(e);
  }
  static Kel::Entity& ownerOf(Kel::Entity& e) {
    return e.parent() && !dynamic_cast<Kel::Dir*>(e.parent()) ? *e.parent() : e;
  }
  // The root that is being written.
  static Kel::Entity& rootOf(Kel::Entity& e) {
    Kel::Entity* at = &e;
    while (at->parent() && !dynamic_cast<Kel::Dir*>(at->parent())) at = at->parent();
    return *at;
  }
  void act(Kel::Entity& e) {
    std::size_t const what = dice.below(22);
    done += std::to_string(what) + " at " + e.fullName().str() + "\n";
    if (!ec) return;
    EntityPtr const held(&e);
    busy = what < 16;
    if (nested && (what == 2 || what == 9 || (what == 0 && &rootOf(e) == &e))) return;
    nested |= what >= 16 && what <= 19;
    if (what >= 6 && what <= 12) repair();
    switch (what) {
      case 0: return erase(e);
      case 1: return erase(ownerOf(e));
      case 2: return erase(rootOf(e));
      case 3: return eraseBelow(e);
      case 4: return eraseBelow(ownerOf(e));
      case 5: return eraseTargets(e);
      case 6: return eraseTargets(any(src));
      case 7: return eraseAny(src);
      case 8: return eraseAny(dest);
      case 9: {
        EntityPtr const srcRoot = src->entity(rootOf(e).name() == "hall" ? "hall" : "sys/annex");
        ec->srcCopyRootDel(srcRoot);
        return erase(*srcRoot);
      }
      case 10: return mutate(src, dice, 10);
      case 11: return mutate(dest, dice, 10);
      case 12: return fill(dest, dice, 1);
      case 13: return ec->attributeEditLogIs(dice.below(2) ? nullptr : S::attributeEditLogFactory());
      case 14: return ec->handlerIs(dice.below(3) ? handler() : nullptr);
      case 15:
        if (auto const handling = Kel::ptrCast<S::EntityCopyGlobalSessionHandler>(ec->handler()))
          handling->handlerTableIs(S::entityCopyCustomHandlerTableFactory("other", root));
        return;
      case 16: return ec->destIs(dice.below(2) ? other : nullptr);
      case 17: ec->srcCopyRootDelAll(); return ec->srcIs(dice.below(2) ? other : nullptr);
      case 18: ec->pendingAttrDelAll(); return ec->doCopyPendingAttrs(false);
      case 19:
        busy = true;
        repair();
        busy = false;
        return ec->handleCopyRoots();
      case 20: ec = nullptr; return;
      default: Kel::throwRangeException("violence");
    }
  }
};

TEST(Violence, EndsAndIsMadeUpFor) {
  std::vector<unsigned> const tried = seeds(300);
  std::size_t acts = 0;
  for (unsigned seed : tried) {
    SCOPED_TRACE(seed);
    ViolentWorld world(seed);
    world.run();
    world.repair();
    world.copy();
    EXPECT_EQ(textOf(world.edits(world.dest, world.src)), "") << world.done;
    EXPECT_FALSE(world.differs(world.dest, world.src)) << world.done;
    acts += world.acts;
    if (HasFailure()) return;
  }
  EXPECT_GE(acts + 100, tried.size()) << "nothing was done";
}

}  // namespace
