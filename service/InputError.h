// Bad input from a user or a file.
#pragma once

#include "service/Error.h"

namespace Cli::Service {

// The message says which word, path or line is wrong, and what was expected. Nothing was changed.
class CLI_SERVICE_API InputError : public Error {
 public:
  using Error::Error;
  InputError(InputError const&) = default;
  ~InputError() override;
};

}  // namespace Cli::Service
