// What a person or a file gave and cannot be taken.
#pragma once

#include "service/Error.h"

namespace Cli::Service {

// The message says which word, path or line is wrong and what would have done. Nothing was changed.
class CLI_SERVICE_API InputError : public Error {
 public:
  using Error::Error;
  InputError(InputError const&) = default;
  ~InputError() override;
};

}  // namespace Cli::Service
