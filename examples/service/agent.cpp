// A participant: keeps a file outside in step with the ports, and refuses what it cannot do.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>

#include "Switch.h"
#include "service/Service.h"

namespace Sv = Cli::Service;

// Writes a line for each port into a file, as a driver would write registers.
class PortDriver : public Sv::Participant {
 public:
  PortDriver(Kel::Dir::Ptr running, std::string file) : running_(std::move(running)), file_(std::move(file)) {}

  // The hardware takes frames of up to 9216 bytes.
  void verify(std::vector<Sv::Difference> const& differences) override {
    for (Sv::Difference const& d : differences) {
      // A created port has its whole content in `after`.
      bool isMtu = d.attr && d.attr->name() == "mtu", isPort = d.after.is_object();
      unsigned mtu = isMtu ? d.after.get<unsigned>() : isPort ? d.after.value("mtu", 0u) : 0u;
      if (mtu > 9216) throw Sv::Error(d.path.text() + ": the hardware takes at most 9216 bytes");
    }
  }
  // Running has the commit already.
  void apply(std::vector<Sv::Difference> const&) override { write(); }
  // Running still has the commit, so the file is restored from `before_`.
  void undo(std::vector<Sv::Difference> const&) override { std::ofstream(file_) << before_; }

 private:
  void write() {
    std::ifstream in(file_);
    before_.assign(std::istreambuf_iterator<char>(in), {});
    std::ofstream out(file_ + ".new");
    auto device = Kel::ptrCast<Sample::Switch>(running_->entity("switch"));
    for (auto it = device->portIterator(); it; ++it)
      out << it.key() << " " << it->mtu() << (it->enabled() ? " up" : " down") << "\n";
    out.close();
    if (!out || std::rename((file_ + ".new").c_str(), file_.c_str()) != 0)
      throw Sv::Error("cannot write " + file_);  // nothing is left behind
  }

  Kel::Dir::Ptr running_;
  std::string file_, before_;
};

int main(int argc, char** argv) {
  std::string const file = argc > 1 ? argv[1] : "ports.txt";
  auto top = Kel::dirFactory("");
  Kel::Dir::Ptr running(new Kel::Dir("running", top.ptr()));
  running->newEntity("Sample::Switch", "switch");
  Sv::Service service(running, {{"switch", "Sample::Switch"}});
  PortDriver driver(running, file);
  service.registerForPath(driver, "switch");
  service.start();

  Sv::Session& session = service.open("s", "carol");
  auto branch = Kel::ptrCast<Sample::Switch>(session.tree().dir->entity("switch"));
  branch->newPort("Ethernet1");
  session.commit();
  branch->port("Ethernet1")->mtuIs(10000);
  try {
    session.commit();
  } catch (Sv::CheckError const& refused) {
    std::cout << refused.what() << "\n";
  }
  branch->port("Ethernet1")->mtuIs(9000);
  session.commit();
  std::cout << std::ifstream(file).rdbuf();
}
