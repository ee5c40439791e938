// The comparison of plain content that the compiler writes, against the attributes one by one.
#include <limits>
#include <set>

#include "Edits.h"
#include "Kel/AttrAccess.h"

namespace Gadgets {
namespace {

// What takes part, told from reflection alone. The names tell which collections are counters.
bool belongs(KelAttr const& attr) {
  return attr.copiable() && attr.isValue() && !attr.keyIsPtr() && attr.type()->valueOps().equal &&
         attr.name().pos("counter") != 0;
}

TEST(PlainDifferences, TakesInWhatACopyCarriesAndHoldsValues) {
  for (KelType const* type : allTypes()) {
    if (!type->isEntity()) continue;
    bool any = false;
    for (KelAttr const* attr : type->attributeQ()) {
      EXPECT_EQ(attr->plainBit() != 0, belongs(*attr)) << attr->fullName() << " of " << *type;
      any = any || attr->plainBit();
    }
    EXPECT_EQ(type->plainDifferences() != nullptr, any) << *type;
  }
}

// Two entities that are written alike, but for one write in three.
class Pair {
 public:
  explicit Pair(KelType const& type) : type_(type), a_(type.newDefault()), b_(type.newDefault()) {}

  // Answers whether plain content is equal after it.
  bool edit(Edits& choice) {
    auto const& attrs = type_.attributeQ();
    KelAttr const& attr = *attrs[choice.random().below(static_cast<unsigned>(attrs.size()))];
    unsigned const seed = choice.random().below(1000);
    bool const both = !choice.random().once(3);
    if (attr.writable()) {
      Edits(seed).write(*a_, attr);
      Edits(both ? seed : seed + 1).write(*b_, attr);
    }
    return checked(attr);
  }
  // What was the only difference at least once.
  std::set<KelAttr const*> alone;

 private:
  bool checked(KelAttr const& written) {
    std::vector<KelAttr const*> different;
    U64 bits = 0;
    for (KelAttr const* attr : type_.attributeQ()) {
      if (!attr->plainBit() || attr->access().equal(*a_, *b_)) continue;
      different.push_back(attr);
      bits |= attr->plainBit();
    }
    EXPECT_EQ(type_.plainDifferences()(*a_, *b_), bits) << "after a write of " << written.fullName();
    EXPECT_EQ(type_.plainDifferences()(*b_, *a_), bits) << "after a write of " << written.fullName();
    if (different.empty()) return true;
    if (different.size() == 1) alone.insert(different.front());
    a_ = type_.newDefault(), b_ = type_.newDefault();  // the next difference must tell by itself
    return false;
  }

  KelType const& type_;
  Entity::Ptr a_, b_;
};

TEST(PlainDifferences, IsThatEveryAttributeInItIsEqual) {
  for (KelType const* type : allTypes()) {
    if (type->isAbstract() || !type->plainDifferences()) continue;
    SCOPED_TRACE(type->fullTypeName());
    Edits choice(3);
    Pair pair(*type);
    unsigned equal = 0;
    for (int i = 0; i < 3000; ++i) equal += pair.edit(choice) ? 1 : 0;
    EXPECT_GT(equal, 1000u);
    for (KelAttr const* attr : type->attributeQ())
      EXPECT_EQ(pair.alone.count(attr), attr->plainBit() ? 1u : 0u) << attr->fullName();
  }
}

TEST(PlainDifferences, NotANumberEqualsNothing) {
  Values::Ptr const values = valuesFactory("v", 1);
  auto const differences = Values::_fwkType()->plainDifferences();
  EXPECT_EQ(differences(*values, *values), 0u);
  values->f64Is(std::numeric_limits<F64>::quiet_NaN());
  EXPECT_EQ(differences(*values, *values), Values::_fwkType()->getAttr("f64")->plainBit());
}

}  // namespace
}  // namespace Gadgets
