// Text forms: the first byte says of which type, the rest is the text.
#include <cmath>

#include "CliSession/CliSession.h"
#include "Fuzz.h"
#include "Kel/Strep.h"

namespace {

template <class T>
bool isNan(T const& v) {
  if constexpr (std::is_floating_point_v<T>) return std::isnan(v);
  return false;
}

// The message of the exception that refuses a text; nothing when it is taken.
template <class T>
std::string refusal(Kel::String8 const& text, T* value = nullptr) {
  try {
    T const parsed = Kel::strepToValue<T>(text);
    if (value) *value = parsed;
    return {};
  } catch (Kel::RangeException const& e) {
    FUZZ_LAW(!e.message().empty(), text.str());
    return e.message().str();
  }
}

// Through the type's record the same texts are taken, and mean the same.
void sameByReflection(Kel::KelType const& type, Kel::String8 const& text, bool taken, Kel::String8 const& strep) {
  char const* at = text.charPtr();
  char const* const end = at + text.chars();
  try {
    Kel::GenericIf::Ptr const parsed = type.valueOps().parse(at, end);
    FUZZ_LAW(at <= end && (at == end) == taken, text.str());
    if (taken) FUZZ_LAW(parsed->strep() == strep, text.str());
  } catch (Kel::RangeException const&) {
    FUZZ_LAW(!taken, text.str());
  }
}

template <class T>
void tryType(Kel::String8 const& text) {
  T value{};
  std::string const refused = refusal<T>(text, &value);
  using Kel::valueToStrep;
  Kel::String8 const strep = valueToStrep(value);
  sameByReflection(*Kel::TypeOf<T>::type(), text, refused.empty(), strep);
  if (!refused.empty()) return;

  T again{};
  FUZZ_LAW(refusal<T>(strep, &again).empty(), strep.str());
  FUZZ_LAW(again == value || (isNan(again) && isNan(value)), strep.str());
  FUZZ_LAW(valueToStrep(again) == strep, strep.str());
  std::string const name = Kel::TypeOf<T>::type()->name().str(), column = std::to_string(strep.chars());
  FUZZ_LAW(refusal<T>(strep + " ") == "junk at column " + column + " deserializing " + name, strep.str());
  if (strep[0] != '\'' && strep[0] != 'V') return;  // a number that is cut is another one
  std::string const cut = strep.str().substr(0, std::hash<std::string_view>()(text) % strep.chars());
  std::string const early = refusal<T>(Kel::String8(cut)), premature = "premature end of value type ";
  bool const inField = early.compare(0, name.size() + 1, name + ".") == 0 && early.find(premature) != std::string::npos;
  Kel::KelAttr const* const held = Kel::TypeOf<T>::type()->valAttr();  // then that is what is read
  FUZZ_LAW(inField || early == premature + (held ? held->type()->name().str() : name), cut + ": " + early);
}

using Try = void (*)(Kel::String8 const&);
constexpr Try tries[] = {
    tryType<bool>,
    tryType<char>,
    tryType<Kel::S8>,
    tryType<Kel::U8>,
    tryType<Kel::S16>,
    tryType<Kel::U16>,
    tryType<Kel::S32>,
    tryType<Kel::U32>,
    tryType<long>,
    tryType<Kel::S64>,
    tryType<Kel::U64>,
    tryType<Kel::F32>,
    tryType<Kel::F64>,
    tryType<Kel::String8>,
    tryType<Cli::Session::SessionCommand>,
    tryType<Cli::Session::SessionState>,
    tryType<Cli::Session::AttributeEditType>,
    tryType<Cli::Session::AttributeDebugAction>,
    tryType<Cli::Session::CommandRequest>,
    tryType<Cli::Session::HandlerContext>,
    tryType<Cli::Session::AttributeEdit>,
    tryType<Cli::Session::EntityPath>,
    tryType<Cli::Session::PtrTarget>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  // Letters, so that seeds can be read: "s'text'".
  Try const tryIt = tries[static_cast<std::size_t>(input.byte() + 256 - 'a') % std::size(tries)];
  tryIt(Kel::String8(input.rest()));
  return 0;
}
