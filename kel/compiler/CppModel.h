// C++ as objects: one signature gives a method's declaration and its definition, and everything is laid out alike.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kelc {

using Lines = std::vector<std::string>;

// Parted by commas.
std::string joined(Lines const& items);

// The statement that returns whether all terms hold, on one line when it fits. There is at least one.
Lines returnAll(Lines const& terms);

// Text in lines of at most 120 columns.
class CppText {
 public:
  static constexpr std::size_t columns = 120;

  void line(std::string const& text = {});
  void lines(Lines const& all, std::string const& indent = {});
  // `head`, the items and `tail`, on one line when they fit, or with the items on lines of their own below `head`.
  void list(std::string const& indent, std::string const& head, Lines const& items, std::string const& tail);
  // The items in braces behind `head`, on one line when they fit.
  void braced(std::string const& indent, std::string const& head, Lines const& items);
  // An empty line, unless there is one already or a block has just been opened.
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
  // "virtual", "static", "static constexpr", "explicit": stands in the declaration alone.
  CppMethod& prefixed(std::string prefix);
  // "override": stands in the declaration alone, too.
  CppMethod& suffixed(std::string suffix);
  CppMethod& asConst();
  // The result is a type of the method's own class.
  CppMethod& resultNested();
  // A constructor's initializers.
  CppMethod& initializes(Lines initializers);
  // The body (an empty statement is an empty body), in the declaration or in a definition of its own; with neither the
  // method is only declared.
  CppMethod& inlined(std::string statement);
  CppMethod& does(Lines body);
  CppMethod& defaulted();
  // In front of the declaration.
  CppMethod& commented(std::string comment);

  bool isDefined() const { return defined_ || defaulted_; }
  // `exported` stands in front of everything.
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

// Members that belong together, parted from the next by an empty line.
struct CppGroup {
  std::string comment;
  Lines raw;  // declarations that are no methods
  std::vector<CppMethod> methods;

  CppMethod& add(std::string result, std::string name) {
    return methods.emplace_back(std::move(result), std::move(name));
  }
};

class CppClass {
 public:
  explicit CppClass(std::string name) : name_(std::move(name)) {}

  std::string base;  // with its access; may be empty
  Lines aliases;     // private, in front of everything
  Lines types;       // public
  Lines fields;      // private
  std::vector<CppGroup> publicGroups, protectedGroups;

  CppGroup& group(std::string comment = {});
  CppGroup& protectedGroup() {
    return protectedGroups.empty() ? protectedGroups.emplace_back() : protectedGroups.back();
  }

  std::string const& name() const { return name_; }
  // `exported` stands in front of the name.
  void declare(CppText& out, std::string const& exported = {}) const;
  void define(CppText& out) const;

 private:
  static void declareGroups(CppText& out, std::vector<CppGroup> const& groups);
  static void defineGroups(CppText& out, std::vector<CppGroup> const& groups, std::string const& scope);

  std::string name_;
};

}  // namespace kelc
