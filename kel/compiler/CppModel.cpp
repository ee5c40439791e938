#include "compiler/CppModel.h"

#include <algorithm>

namespace kelc {

std::string joined(Lines const& items) {
  std::string text;
  for (std::string const& item : items) text += (text.empty() ? "" : ", ") + item;
  return text;
}

Lines returnAll(Lines const& terms) {
  Lines lines;
  std::string whole;
  for (std::string const& term : terms) {
    if (!lines.empty()) lines.back() += " &&";
    lines.push_back((lines.empty() ? "return " : "       ") + term);
    whole += (whole.empty() ? "return " : " && ") + term;
  }
  lines.back() += ";";
  return whole.size() + 3 <= CppText::columns ? Lines{whole + ";"} : lines;
}

// --- CppText ---

void CppText::line(std::string const& text) {
  text_ += text;
  text_ += '\n';
}

void CppText::lines(Lines const& all, std::string const& indent) {
  for (std::string const& text : all) line(text.empty() ? text : indent + text);
}

void CppText::gap() {
  bool const open = text_.size() >= 2 &&
                    (text_.compare(text_.size() - 2, 2, "\n\n") == 0 || text_.compare(text_.size() - 2, 2, ":\n") == 0);
  if (!open) line();
}

void CppText::list(std::string const& indent, std::string const& head, Lines const& items, std::string const& tail) {
  std::string const whole = indent + head + joined(items) + tail;
  if (whole.size() <= columns || items.empty()) return line(whole);
  line(indent + head);
  wrapped(indent + "    ", items, tail);
}

void CppText::braced(std::string const& indent, std::string const& head, Lines const& items) {
  std::string const whole = indent + head + " { " + joined(items) + " };";
  if (whole.size() <= columns) return line(whole);
  line(indent + head + " {");
  wrapped(indent + "  ", items, {});
  line(indent + "};");
}

void CppText::wrapped(std::string const& indent, Lines const& items, std::string const& tail) {
  std::string current = indent;
  for (std::size_t i = 0; i < items.size(); ++i) {
    std::string const item = items[i] + (i + 1 < items.size() ? "," : tail);
    if (current != indent && current.size() + 1 + item.size() > columns) {
      line(current);
      current = indent;
    }
    current += (current == indent ? "" : " ") + item;
  }
  line(current);
}

// --- CppMethod ---

CppMethod& CppMethod::takes(std::string type, std::string name) {
  params_.push_back({std::move(type), std::move(name)});
  return *this;
}

CppMethod& CppMethod::takes(std::vector<CppParam> const& params) {
  params_.insert(params_.end(), params.begin(), params.end());
  return *this;
}

CppMethod& CppMethod::prefixed(std::string prefix) {
  prefix_ = std::move(prefix) + " ";
  return *this;
}

CppMethod& CppMethod::suffixed(std::string suffix) {
  suffix_ = " " + std::move(suffix);
  return *this;
}

CppMethod& CppMethod::asConst() {
  const_ = true;
  return *this;
}

CppMethod& CppMethod::resultNested() {
  nested_ = true;
  return *this;
}

CppMethod& CppMethod::initializes(Lines initializers) {
  initializers_ = std::move(initializers);
  return *this;
}

CppMethod& CppMethod::inlined(std::string statement) {
  inline_ = std::move(statement);
  return *this;
}

CppMethod& CppMethod::does(Lines body) {
  body_ = std::move(body);
  defined_ = true;
  return *this;
}

CppMethod& CppMethod::defaulted() {
  defaulted_ = true;
  return *this;
}

CppMethod& CppMethod::commented(std::string comment) {
  comment_ = std::move(comment);
  return *this;
}

std::string CppMethod::head(std::string const& scope) const {
  std::string const nested = nested_ && !scope.empty() ? scope + "::" : "";
  std::string const result = result_.empty() ? "" : nested + result_ + " ";
  return result + (scope.empty() ? "" : scope + "::") + name_ + "(";
}

Lines CppMethod::paramList() const {
  Lines list;
  for (CppParam const& p : params_) list.push_back(p.name.empty() ? p.type : p.type + " " + p.name);
  return list;
}

void CppMethod::declare(CppText& out, std::string const& indent, std::string const& exported) const {
  std::string const start = exported + prefix_ + head({});
  std::string const end = std::string(")") + (const_ ? " const" : "") + suffix_;
  if (!comment_.empty()) out.line(indent + "// " + comment_);
  if (!inline_) return out.list(indent, start, paramList(), end + ";");
  std::string const whole =
      indent + start + joined(paramList()) + end + (inline_->empty() ? " {}" : " { " + *inline_ + " }");
  if (whole.size() <= CppText::columns) return out.line(whole);
  out.list(indent, start, paramList(), end + " {");
  out.line(indent + "  " + *inline_);
  out.line(indent + "}");
}

void CppMethod::define(CppText& out, std::string const& scope) const {
  std::string const end = std::string(")") + (const_ ? " const" : "");
  if (defaulted_) return out.list({}, head(scope), paramList(), end + " = default;");
  std::string const initializers = initializers_.empty() ? "" : " : " + joined(initializers_);
  std::string const body = body_.empty() ? " {}" : " { " + body_[0] + " }";
  std::string const whole = head(scope) + joined(paramList()) + end + initializers + body;
  if (body_.size() < 2 && whole.size() <= CppText::columns) return out.line(whole);
  std::string const open = body_.empty() ? " {}" : " {";
  if (params_.empty() && head(scope).size() + end.size() + open.size() > CppText::columns) {
    // The only place to break the line is after the result.
    std::string const called = head(scope);
    std::size_t const name = called.rfind(' ');
    out.line(called.substr(0, name));
    out.line(called.substr(name + 1) + end + open);
  } else if (initializers_.empty()) {
    out.list({}, head(scope), paramList(), end + open);
  } else {
    out.list({}, head(scope), paramList(), end);
    out.list("    ", ": ", initializers_, open);
  }
  if (body_.empty()) return;
  out.lines(body_, "  ");
  out.line("}");
}

// --- CppClass ---

CppGroup& CppClass::group(std::string comment) {
  CppGroup& added = publicGroups.emplace_back();
  added.comment = std::move(comment);
  return added;
}

void CppClass::declareGroups(CppText& out, std::vector<CppGroup> const& groups) {
  for (CppGroup const& group : groups) {
    if (group.raw.empty() && group.methods.empty()) continue;
    out.gap();
    if (!group.comment.empty()) out.line("  // " + group.comment);
    out.lines(group.raw, "  ");
    for (CppMethod const& method : group.methods) method.declare(out, "  ");
  }
}

void CppClass::declare(CppText& out, std::string const& exported) const {
  out.line("class " + exported + name_ + (base.empty() ? "" : " : " + base) + " {");
  out.lines(aliases, "  ");
  if (!aliases.empty()) out.gap();
  out.line(" public:");
  out.lines(types, "  ");
  declareGroups(out, publicGroups);
  if (!protectedGroups.empty()) {
    out.gap();
    out.line(" protected:");
    declareGroups(out, protectedGroups);
  }
  if (!fields.empty()) {
    out.gap();
    out.line(" private:");
    std::vector<CppField> sorted = fields;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](CppField const& a, CppField const& b) { return a.scalarSize > b.scalarSize; });
    for (CppField const& field : sorted) out.line("  " + field.text);
  }
  out.line("};");
}

void CppClass::defineGroups(CppText& out, std::vector<CppGroup> const& groups, std::string const& scope) {
  for (CppGroup const& group : groups) {
    for (CppMethod const& method : group.methods) {
      if (!method.isDefined()) continue;
      out.gap();
      method.define(out, scope);
    }
  }
}

void CppClass::define(CppText& out) const {
  defineGroups(out, publicGroups, name_);
  defineGroups(out, protectedGroups, name_);
}

}  // namespace kelc
