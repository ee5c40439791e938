// Serves command requests, which clients post into the command directories of a session's configuration. Not installed.
#pragma once

#include <map>
#include <memory>

#include "service/SessionImpl.h"

namespace Cli::Service {

// Listens to the command directories of one session.
class Requests {
 public:
  explicit Requests(Session::Impl& session);
  ~Requests();

 private:
  class Channel;
  class Directories;
  Session::Impl& session_;
  std::map<Kel::U32, Kel::Ptr<Channel>> channels_;
  Kel::Ptr<Directories> directories_;
};

}  // namespace Cli::Service
