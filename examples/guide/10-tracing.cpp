#include "Kel/Trace.h"

#include <iostream>

#include "Lab.h"

KEL_TRACE_MODULE("Guide")

// Counts its calls, to show when a trace is evaluated.
int evaluated = 0;
int number() { return ++evaluated; }

int main() {
  Kel::TraceSink before = Kel::traceSinkIs([](Kel::TraceRecord const& record) {
    std::cout << record.handle << "/" << record.level << " " << record.function << ": " << record.message << "\n";
  });

  KEL_TRACE(3) << "number " << number();
  Kel::TraceHandle::settingsIs("Guide/0-4");
  KEL_TRACE(3) << "number " << number();
  KEL_TRACE(5) << "number " << number();
  std::cout << "evaluated: " << evaluated << "\n";

  Guide::Lab lab;
  lab.device->newPort("Ethernet1")->mtuIs(9000);
  Kel::TraceHandle::settingsIs("CliSession/9");
  lab.manager->doReplaceConfig(lab.running, "s2");
  lab.manager->doReplaceConfig(lab.running, "s1");
  Kel::traceSinkIs(before);
}
