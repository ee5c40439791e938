// Where parsing goes on after a mistake.
#pragma once

#include <initializer_list>
#include <string_view>

#include "compiler/Cursor.h"

namespace kelc {

// A qualified name has at most this many parts; every enclosing namespace is searched for every name.
inline constexpr unsigned maxNameParts = 32;

// What a list contains, which decides where one ends that is not closed.
enum class ListOf { words, params, enumerators };

// A mistake should neither hide what follows it nor make the rest look wrong. Two things tell where the next part
// begins when brackets or semicolons are missing: words that can stand nowhere else, and the layout of lines.
class Recovery : public Cursor {
 public:
  using Cursor::Cursor;

  // --- what begins here ---

  bool isDeclarationWord() const;
  // A declaration, and nothing else.
  bool startsDeclaration() const;
  // A line with a member of an entity or value type; one with a keyword in front.
  bool startsMember() const;
  bool startsKeywordMember() const;

  // Where a declaration began: whatever is no farther to the right does not belong to it.
  struct Outer {
    unsigned depth = 0;
    unsigned column = 1;
  };
  // Enters a declaration that begins here; returns what was entered before, for `leave`.
  Outer enter();
  void leave(Outer const& outer);
  bool isNested() const { return outer_.depth > 0; }
  // Whether this is the start of a line, and no farther to the right than the declaration that was entered.
  bool isAtMargin() const;

  // --- skipping; `start` is where the skipped part began ---

  // To behind the `;` or `}` that ends the declaration, or to the next one.
  void skipDeclaration(std::size_t start);
  // To behind the `;` that ends the member, to the next one, or to the end of the body, whose braces are `inside` deep.
  void skipMember(std::size_t start, unsigned inside);
  // To the comma, or to where the list ends.
  void skipItem(std::string_view close, ListOf what);
  // Whether a list ends here though its closing bracket is missing.
  bool endsList(std::string_view close, ListOf what) const;

  // --- parts that may be missing ---

  // The end of a member or statement. When it is missing at the end of a line, parsing goes on as if it were there.
  void expectEnd();
  // The brace that opens a body. Skips what is in its way. Where it is missing but the body is there, parsing goes on
  // as if it were there, too; false when there is no body.
  bool openBody();

  // --- misspelt words ---

  // The word among `words` that was probably meant here, which is reported; empty when there is none.
  std::string_view misspelt(std::initializer_list<std::string_view> words);
  // The same among the words that begin a declaration, or a member with a keyword in front, if one can follow here.
  std::string_view misspeltDeclaration();
  std::string_view misspeltMember();
  // A word that is a keyword only in front of another name; elsewhere it is a name itself.
  bool acceptBefore(std::string_view word);
  // A keyword that has to follow. A wrong or missing one is reported, and parsing goes on behind it. True when it was
  // there or just misspelt.
  bool expectKeyword(std::string_view word);

 private:
  bool startsParam() const;
  bool closesModifiers() const;
  bool closesOnLine() const;
  bool braceAhead() const;

  Outer outer_;
};

}  // namespace kelc
