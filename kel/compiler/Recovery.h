// Where parsing goes on after a mistake.
#pragma once

#include <initializer_list>
#include <string_view>

#include "compiler/Cursor.h"

namespace kelc {

// The most parts of a qualified name. There must be a limit, because every enclosing namespace is searched for every
// name.
inline constexpr unsigned maxNameParts = 32;

// What a list contains. This decides where the list ends if it is not closed.
enum class ListOf { words, params, enumerators };

// A mistake should neither hide what follows it nor make the rest look wrong. If brackets or semicolons are missing,
// two things tell where the next part begins: words that can only be there, and the layout of lines.
class Recovery : public Cursor {
 public:
  using Cursor::Cursor;

  // --- what begins here ---

  bool isDeclarationWord() const;
  // Whether this can only be a declaration.
  bool startsDeclaration() const;
  // Whether this line is a member of an entity or value type; whether it is one that begins with a keyword.
  bool startsMember() const;
  bool startsKeywordMember() const;

  // The column of a declaration. A line that does not begin farther to the right does not belong to it.
  struct Outer {
    unsigned depth = 0;
    unsigned column = 1;
  };
  // Enters a declaration that begins here. Returns the enclosing one, for `leave`.
  Outer enter();
  void leave(Outer const& outer);
  bool isNested() const { return outer_.depth > 0; }
  // Whether a line begins here, and no farther to the right than the current declaration.
  bool isAtMargin() const;

  // --- skipping; `start` is where the skipped part began ---

  // Skips to after the `;` or `}` that ends the declaration, or to the next declaration.
  void skipDeclaration(std::size_t start);
  // Skips to after the `;` that ends the member, to the next member, or to the end of the body, which is `inside`
  // braces deep.
  void skipMember(std::size_t start, unsigned inside);
  // Skips to the comma, or to the end of the list.
  void skipItem(std::string_view close, ListOf what);
  // Whether a list ends here although its closing bracket is missing.
  bool endsList(std::string_view close, ListOf what) const;

  // --- parts that may be missing ---

  // Takes the `;` of a member or statement. If it is missing at the end of a line, parsing goes on as if it were there.
  void expectEnd();
  // Takes the brace that opens a body; skips everything before it. If only the brace is missing, parsing goes on as if
  // it were there. False if there is no body.
  bool openBody();

  // --- misspelt words ---

  // The word among `words` that was probably meant here; reports the mistake. Empty if there is none.
  std::string_view misspelt(std::initializer_list<std::string_view> words);
  // The same with the words that begin a declaration, or a member with a keyword, if one can follow here.
  std::string_view misspeltDeclaration();
  std::string_view misspeltMember();
  // A word that is a keyword only before another name; elsewhere it is a name.
  bool acceptBefore(std::string_view word);
  // Takes a required keyword. Reports a wrong or missing one and goes on after it. True if it was there or only
  // misspelt.
  bool expectKeyword(std::string_view word);

 private:
  bool startsParam() const;
  bool closesModifiers() const;
  bool closesOnLine() const;
  bool braceAhead() const;

  Outer outer_;
};

}  // namespace kelc
