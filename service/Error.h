// The base of the service's exceptions. Messages are for users.
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
