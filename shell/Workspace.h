// What the shell works on: the running configuration, the session manager, and the session that is open.
#pragma once

#include <string>
#include <vector>

#include "CliSession/CliSession.h"
#include "Kel/Dir.h"

namespace Shell {

class Workspace {
 public:
  Workspace();

  // Where a configuration is to be loaded into.
  Kel::Dir::Ptr const& running() const { return running_; }
  // Declares a session root: its path in the running configuration and its type.
  void sessionRootIs(std::string const& path, std::string const& typeName);
  std::vector<std::string> sessionRoots() const;

  // Makes a session of that name, which keeps an edit log, and fills it from the running configuration; opens it when
  // it is there already.
  void sessionOpen(std::string const& name);
  bool hasSession() const { return !session_.empty(); }
  std::string const& sessionName() const { return session_; }
  // The open session's directory; raises RangeException when there is no session.
  Kel::Dir::Ptr sessionDir() const;
  // Fills the session from the running configuration again.
  void sessionReplace();
  // Whether deletions of entities that hold nothing but defaults stay out of the log. What such an entity holds besides
  // is told by edits that the log does not have yet: in a log that has many, more stays out.
  void bypassIs(bool on);
  // What is to happen, from the next filling of a session on, when it makes an edit: at one path below the session, or,
  // with an empty path, everywhere.
  void debugActionIs(Cli::Session::AttributeEdit const& edit, std::string const& path,
                     Cli::Session::AttributeDebugAction action);
  Cli::Session::CliConfig const& userConfig() const { return *userConfig_; }
  // The edits of the copies into the session.
  Cli::Session::AttributeEditLog::PtrConst sessionLog() const;

  // The first edit that would make the running configuration equal to the session.
  struct Difference {
    bool found = false;
    Cli::Session::AttributeEdit edit;
    std::string path;
  };
  Difference compare() const;

 private:
  void replace(std::string const& name);
  Kel::Entity::Ptr status(std::string const& name) const;

  Kel::Dir::Ptr top_, running_, sessions_, ancestors_;
  Kel::Entity::Ptr manager_, config_;
  Cli::Session::CliConfig::Ptr userConfig_;
  Cli::Session::AttributeEditBypassTable::Ptr bypass_;
  std::string session_;
};

}  // namespace Shell
