#include <iostream>
#include <string_view>

#include "Kel/GenericIf.h"
#include "Network.h"

int main() {
  Guide::Prefix prefix("10.0.0.1", 24);
  std::cout << Guide::Speed::tenGigabit << ", " << prefix << "\n";
  std::cout << stringValue(Guide::Speed::auto_) << "\n";

  std::cout << valueToStrep(Guide::Speed::tenGigabit) << "\n";
  std::cout << valueToStrep(prefix) << "\n";
  std::cout << Kel::valueToStrep(Kel::String("it's")) << " " << Kel::valueToStrep(true) << "\n";

  auto again = Kel::strepToValue<Guide::Prefix>(valueToStrep(prefix));
  std::cout << "equal: " << (again == prefix) << "\n";

  std::string_view text = "'gigabit' and more";
  char const* at = text.data();
  Guide::Speed speed = Guide::Speed::auto_;
  sequenceToValue(at, text.data() + text.size(), &speed);
  std::cout << speed << ", then '" << at << "'\n";

  Kel::KelType const* type = Kel::KelType::find("Guide::Speed");
  std::cout << type->genericFromText("gigabit")->attrVal<Guide::Speed>() << "\n";
  for (char const* wrong : {"fast", "'gigabit'"}) {
    try {
      type->genericFromText(wrong);
    } catch (Kel::RangeException const& e) {
      std::cout << e.message() << "\n";
    }
  }
  try {
    Kel::strepToValue<Kel::U8>("300");
  } catch (Kel::RangeException const& e) {
    std::cout << e.message() << "\n";
  }
  try {
    Kel::strepToValue<Kel::U8>("30 ");
  } catch (Kel::RangeException const& e) {
    std::cout << e.message() << "\n";
  }
}
