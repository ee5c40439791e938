#include "service/Requests.h"

#include "service/ServiceImpl.h"

namespace Cli::Service {

using Cli::Session::CommandRequestDir;
using Cli::Session::PendingChangeConfig;
using Cli::Session::SessionCommand;
using Cli::Session::SessionState;

// Reacts to the requests in one command directory.
class Requests::Channel final : public CommandRequestDir::Notifiee {
 public:
  Channel(Session::Impl& session, CommandRequestDir::Ptr const& dir) : session_(session), number_(dir->id()) {
    notifierIs(dir);
  }
  void onCommand(Kel::U32 id) override {
    if (notifier()->commandHas(id)) session_.service.serve(session_, number_, id);
  }
  void stop() { notifierIs(nullptr); }

 private:
  Session::Impl& session_;
  Kel::U32 const number_;
};

// Reacts to command directories that are made or deleted.
class Requests::Directories final : public PendingChangeConfig::Notifiee {
 public:
  Directories(Requests& requests, PendingChangeConfig::Ptr const& config) : requests_(requests) { notifierIs(config); }
  void onCommandDir(Kel::U32 number) override { look(number); }
  void look(Kel::U32 number) {
    auto const dir = notifier()->commandDir(number);
    auto& channel = requests_.channels_[number];
    if (channel) channel->stop();
    channel = dir ? Kel::Ptr<Channel>(new Channel(requests_.session_, dir)) : nullptr;
  }
  void stop() { notifierIs(nullptr); }

 private:
  Requests& requests_;
};

Requests::Requests(Session::Impl& session) : session_(session), directories_(new Directories(*this, session.config)) {
  for (auto it = session.config->commandDirIteratorConst(); it; ++it) directories_->look(it.key());
}

Requests::~Requests() {
  directories_->stop();
  for (auto const& [number, channel] : channels_)
    if (channel) channel->stop();
}

// --- Serving ---

std::string Service::Impl::answer(Session::Impl& s, SessionCommand command) {
  auto const count = [](std::size_t n, char const* what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
  };
  Session& session = *sessions.at(s.name);
  switch (command) {
    case SessionCommand::noOp: return "ok";
    case SessionCommand::clearConfig: return "cleared; " + count(session.clear(), "edit") + " dropped";
    case SessionCommand::update: return "updated; " + count(session.update().size(), "change");
    case SessionCommand::commit: {
      CommitResult const result = session.commit();
      return result.number ? "committed as " + std::to_string(*result.number) : "nothing to commit";
    }
    case SessionCommand::abort: end(s, SessionState::aborted); return "aborted";
    case SessionCommand::remove: end(s, SessionState::completed); return "removed";
  }
  throw Error("no such command");
}

// A request that comes during an update or a commit is served after it.
void Service::Impl::serve(Session::Impl& s, Kel::U32 channel, Kel::U32 id) {
  if (underWay > 0) {
    postponed.emplace_back(s.name, channel, id);
    return;
  }
  auto const status = s.status;
  auto const dir = s.config->commandDir(channel);
  if (!dir || !dir->commandHas(id)) return;
  std::string text;
  try {
    text = answer(s, dir->command(id).cmd());
  } catch (std::exception const& e) {
    text = std::string("error: ") + e.what();
  }
  status->commandResponseIs(channel)->responseIs(id, Kel::String8(text));
}

void Service::Impl::servePostponed() noexcept {
  while (underWay == 0 && !postponed.empty()) {
    auto const [name, channel, id] = std::move(postponed.front());
    postponed.pop_front();
    try {
      if (auto const found = sessions.find(name); found != sessions.end()) serve(*found->second->impl_, channel, id);
    } catch (...) {
      // The answer could not be published, so the client gets none.
    }
  }
}

}  // namespace Cli::Service
