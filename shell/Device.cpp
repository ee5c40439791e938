#include "Device.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <utility>

#include "Kel/Exception.h"
#include "ModelLibrary.h"
#include "service/SqliteStore.h"

namespace Shell {

namespace Service = Cli::Service;

namespace {

constexpr std::uintmax_t maxFileSize = 64U << 20;

std::vector<Service::SessionRoot> sessionRoots(Model const& model) {
  std::vector<Service::SessionRoot> roots;
  for (ModelRoot const& root : model.roots()) roots.push_back({root.path, root.typeName});
  return roots;
}

std::unique_ptr<Service::CommitStore> openStore(std::string const& dir) {
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  if (error) throw ModelError(dir + ": cannot be made: " + error.message());
  if (::access(dir.c_str(), W_OK | X_OK) != 0) throw ModelError(dir + ": cannot be written: " + std::strerror(errno));
  return std::make_unique<Service::SqliteStore>((std::filesystem::path(dir) / "commits.db").string());
}

}  // namespace

Device::Device(Model const& model, Settings const& settings) : model_(model), top_(Kel::dirFactory("")) {
  running_ = Kel::Dir::Ptr(new Kel::Dir("running", top_.ptr()));
  std::string const name = fileTitle(settings.file);
  report_ = loadConfiguration(model, settings.text.empty() ? readConfiguration(settings.file) : settings.text, name,
                              running_, pending_);
  cleanPending_ = pending_;
  Service::Options options;
  options.clock = settings.clock;
  if (!settings.stateDir.empty()) {
    store_ = openStore(settings.stateDir);
    options.store = store_.get();
  }
  service_ = std::make_unique<Service::Service>(running_, sessionRoots(model), options);
  if (store_) {
    service_->start();
    pending_.retry(running_);
  }
  pendingAfter_[service_->lastCommit()] = pending_;
}

Device::~Device() = default;

void Device::pendingIs(Service::PendingReferences pending) {
  auto const same = [](Service::PendingReference const& a, Service::PendingReference const& b) {
    return a.place == b.place && a.target == b.target;
  };
  auto const &now = pending.list(), &before = pending_.list();
  bool const changed = !std::equal(now.begin(), now.end(), before.begin(), before.end(), same);
  pending_ = std::move(pending);
  if (changed) pendingAfter_[service_->lastCommit()] = pending_;
  waiting_ = service_->waiting();
}

std::optional<std::string> Device::followUndone() {
  if (!waiting_ || service_->waiting()) return std::nullopt;
  auto const undone = *std::exchange(waiting_, std::nullopt);
  if (Service::PendingReferences const* const before = pendingAfter(undone.number - 1)) pendingIs(*before);
  return undone.session;
}

Service::PendingReferences const* Device::pendingAfter(Kel::U64 commit) const {
  auto const later = pendingAfter_.upper_bound(commit);
  return later == pendingAfter_.begin() ? nullptr : &std::prev(later)->second;
}

std::string fileTitle(std::string const& file) { return file == "-" ? "standard input" : file; }

std::string readConfiguration(std::string const& file) {
  std::ostringstream text;
  if (file == "-") {
    text << std::cin.rdbuf();
    return text.str();
  }
  std::error_code error;
  auto const status = std::filesystem::status(file, error);
  if (!std::filesystem::exists(status)) throw ModelError(file + ": there is no such file");
  if (error) throw ModelError(file + ": cannot be read: " + error.message());
  if (std::filesystem::is_directory(status)) throw ModelError(file + ": is a directory, not a file");
  if (std::filesystem::is_regular_file(status) && std::filesystem::file_size(file, error) > maxFileSize)
    throw ModelError(file + ": is bigger than " + std::to_string(maxFileSize) + " bytes");
  std::ifstream in(file, std::ios::binary);
  text << in.rdbuf();
  if (!in.is_open() || in.bad()) throw ModelError(file + ": cannot be read");
  return text.str();
}

LoadReport loadConfiguration(Model const& model, std::string const& text, std::string const& file,
                             Kel::Dir::Ptr const& into, Service::PendingReferences& pending) {
  bool const blank = text.find_first_not_of(" \t\r\n") == std::string::npos;
  if (blank) throw ModelError(file + ": is empty");
  if (looksLikeTree(model.roots(), text)) return loadTree(model.roots(), text, file, into, pending);
  return model.load(text, file, into, pending);
}

}  // namespace Shell
