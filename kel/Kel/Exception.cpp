#include "Kel/Exception.h"

#include "Kel/Ptr.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("Exception")

namespace Kel {

namespace {
thread_local U32 expectedCount[Exception::idCount];
}

Exception::Exception(String8 message, IdBitArray ids)
    : message_(std::move(message)), what_(message_.str()), idSet_(ids), expected_(false) {
  for (std::size_t id = 0; id < idCount; ++id) expected_ = expected_ || (ids[id] && expectedCount[id] > 0);
  if (!expected_) KEL_TRACE(1) << "unexpected: " << message_;
}

Expect::Expect(Exception::Id id) : id_(id) { ++expectedCount[id_]; }
Expect::~Expect() { --expectedCount[id_]; }

void throwInternalException(String8 const& message) { throw InternalException(message); }
void throwRangeException(char const* message) { throw RangeException(message); }
void throwRangeException(String8 const& message) { throw RangeException(message); }
void throwNameInUseException(String8 const& message) { throw NameInUseException(message); }
void throwNoImplementationException(char const* function) { throw NoImplementationException(function); }
void throwNullValidPtr() { throwRangeException("null ValidPtr"); }

void throwConstException(String8 const& where) {
  throw ConstException(where + ": attempting to modify a const instance");
}
void throwTypeException(String8 const& where, String8 const& what) { throw TypeException(where + ": " + what); }
void throwUnknownAttrException(String8 const& typeName, String8 const& attrName) {
  throw UnknownAttrException(typeName + " has no attribute '" + attrName + "'");
}
void throwUnknownArgException(String8 const& where, String8 const& what) {
  throw UnknownArgException(where + ": " + what);
}
void throwBadIndexAttrException(String8 const& where, String8 const& what) {
  throw BadIndexAttrException(where + ": " + what);
}
void throwOpNotSupportedException(String8 const& where, char const* operation) {
  throw OpNotSupportedException(where + ": operation " + operation + " not supported");
}

}  // namespace Kel
