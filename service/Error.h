// What the service raises when it refuses; the message is a sentence for people.
#pragma once

#include <stdexcept>
#include <string>

#include "service/Export.h"

namespace Cli::Service {

class CLI_SERVICE_API Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~Error() override;
};

}  // namespace Cli::Service
