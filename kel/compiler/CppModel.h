// C++ code as objects. One signature gives the declaration and the definition of a method, and all code has the same
// layout.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kelc {

using Lines = std::vector<std::string>;

// Joins with commas.
std::string joined(Lines const& items);

// A return statement that joins the terms with `&&`, on one line if it fits. REQUIRES: at least one term.
Lines returnAll(Lines const& terms);

// Collects lines of at most 120 columns.
class CppText {
 public:
  static constexpr std::size_t columns = 120;

  void line(std::string const& text = {});
  void lines(Lines const& all, std::string const& indent = {});
  // `head`, the items and `tail`: on one line if they fit, else with the items on lines of their own below `head`.
  void list(std::string const& indent, std::string const& head, Lines const& items, std::string const& tail);
  // `head` and the items in braces, on one line if they fit.
  void braced(std::string const& indent, std::string const& head, Lines const& items);
  // Adds an empty line, unless the last line is empty or has opened a block.
  void gap();
  std::string const& text() const { return text_; }

 private:
  void wrapped(std::string const& indent, Lines const& items, std::string const& tail);

  std::string text_;
};

struct CppParam {
  std::string type;
  std::string name;
};

// A method or a free function.
class CppMethod {
 public:
  // A constructor or destructor has no result.
  CppMethod(std::string result, std::string name) : result_(std::move(result)), name_(std::move(name)) {}

  CppMethod& takes(std::string type, std::string name);
  CppMethod& takes(std::vector<CppParam> const& params);
  // "virtual", "static", "static constexpr", "explicit": appears in the declaration only.
  CppMethod& prefixed(std::string prefix);
  // "override": appears in the declaration only.
  CppMethod& suffixed(std::string suffix);
  CppMethod& asConst();
  // The result is a type of the method's own class.
  CppMethod& resultNested();
  // A constructor's initializers.
  CppMethod& initializes(Lines initializers);
  // The body, in the declaration or in a definition of its own. An empty statement is an empty body. Without a body the
  // method is only declared.
  CppMethod& inlined(std::string statement);
  CppMethod& does(Lines body);
  CppMethod& defaulted();
  // A comment before the declaration.
  CppMethod& commented(std::string comment);

  bool isDefined() const { return defined_ || defaulted_; }
  // `exported` comes before everything else.
  void declare(CppText& out, std::string const& indent, std::string const& exported = {}) const;
  // `scope`: the class, empty for a free function.
  void define(CppText& out, std::string const& scope) const;

 private:
  std::string head(std::string const& scope) const;
  Lines paramList() const;

  std::string result_, name_, prefix_, suffix_, comment_;
  std::optional<std::string> inline_;
  std::vector<CppParam> params_;
  Lines initializers_, body_;
  bool const_ = false, nested_ = false, defined_ = false, defaulted_ = false;
};

// A data member.
struct CppField {
  std::string text;
  unsigned scalarSize = 0;  // 0: not a scalar, or to be initialized in order
};

// Members that belong together. An empty line follows them.
struct CppGroup {
  std::string comment;
  Lines raw;  // declarations other than methods
  std::vector<CppMethod> methods;

  CppMethod& add(std::string result, std::string name) {
    return methods.emplace_back(std::move(result), std::move(name));
  }
};

class CppClass {
 public:
  explicit CppClass(std::string name) : name_(std::move(name)) {}

  std::string base;  // with its access; may be empty
  Lines aliases;     // private, before everything else
  Lines types;       // public
  // Private. Scalars come first, the largest first: so there are no gaps between them, and in an entity they lie beside
  // the stamp of its last change, which a write changes as well.
  std::vector<CppField> fields;
  std::vector<CppGroup> publicGroups, protectedGroups;

  CppGroup& group(std::string comment = {});
  CppGroup& protectedGroup() {
    return protectedGroups.empty() ? protectedGroups.emplace_back() : protectedGroups.back();
  }

  std::string const& name() const { return name_; }
  // `exported` comes before the name.
  void declare(CppText& out, std::string const& exported = {}) const;
  void define(CppText& out) const;

 private:
  static void declareGroups(CppText& out, std::vector<CppGroup> const& groups);
  static void defineGroups(CppText& out, std::vector<CppGroup> const& groups, std::string const& scope);

  std::string name_;
};

}  // namespace kelc
