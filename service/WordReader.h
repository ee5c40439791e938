// Reads a path word by word, and tells what may come next. Not installed.
#pragma once

#include <string>
#include <string_view>

#include "service/PathWords.h"
#include "service/Walk.h"

namespace Cli::Service {

class WordReader {
 public:
  enum class Expects { entry, attribute, key, nothing };

  // Raises InputError if there is nothing at `at`.
  WordReader(Kel::Dir::Ptr base, Path const& at, WordRules const& rules);

  // Reads one more word; raises InputError. REQUIRES: expects() is not `nothing`.
  void take(std::string const& word);
  Expects expects() const { return expects_; }

  Path const& path() const { return path_; }
  std::size_t missing() const { return missing_; }
  Kel::Entity* entity() const { return entity_.ptr(); }  // null: it does not exist
  Kel::KelType const* type() const { return type_; }
  Kel::KelAttr const* attr() const { return attr_; }  // of a key that is expected, or of a value

 private:
  void takeEntry(std::string const& word);
  void takeAttribute(std::string const& word);
  void takeKey(std::string const& word);
  void takePosition(std::string const& word);
  void takeOwnedKey(std::string const& word);
  void takeValueKey(std::string const& word);
  bool takePendingKey(std::string const& word);
  bool takeDotted(std::string const& word);
  void enter(Kel::Entity* child, Kel::KelType const* type);
  void leaf(bool there);
  void goTo(Path const& path);
  Kel::GenericIf::PtrConst keyFrom(std::string const& word) const;
  [[noreturn]] void noKey(std::string const& word) const;

  Kel::Dir::Ptr base_;
  WordRules rules_;
  Path path_;
  Kel::Entity::Ptr entity_;
  Kel::KelType const* type_ = nullptr;
  Kel::KelAttr const* attr_ = nullptr;
  std::size_t missing_ = 0;
  bool first_ = true;
  Expects expects_ = Expects::entry;
};

// "a number from 0 to 65535", "a reference to a Port", "a collection of Ports by name".
std::string explanationOf(Kel::KelAttr const& attr);
// "a Port", "an Interface".
std::string withArticle(Kel::KelType const& type);

}  // namespace Cli::Service
