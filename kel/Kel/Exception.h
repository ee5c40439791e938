// The framework's exceptions.
//
// The message of an exception says where and what. Its ids are those by which an `Expect` can announce it.
// docs/errors.md lists all messages.
#pragma once

#include <bitset>
#include <exception>
#include <string>

#include "Kel/String8.h"

namespace Kel {

// The base of the framework's exceptions.
class KEL_API Exception : public std::exception {
 public:
  enum Id : U8 {
    generalId,
    internalId,
    rangeId,
    unknownAttrId,
    typeId,
    noImplementationId,
    nameInUseId,
    attrLogEntityId,
    attrLogRecordId,
    entityIdUnavailableId,
    constId,
    unknownArgId,
    badIndexId,
    opNotSupportedId,
    idCount
  };
  using IdBitArray = std::bitset<idCount>;

  // An exception that no `Expect` of this thread announces is traced by the handle "Exception" at level 1.
  explicit Exception(String8 message, IdBitArray ids = ids_(generalId));
  String8 const& message() const noexcept { return message_; }
  char const* what() const noexcept override { return what_.c_str(); }
  // The ids by which an `Expect` announces it.
  IdBitArray const& ids() const noexcept { return idSet_; }
  // Whether an `Expect` announced it when it was made.
  bool expected() const noexcept { return expected_; }

 protected:
  static IdBitArray ids_(Id id) { return IdBitArray().set(id); }
  static IdBitArray ids_(Id a, Id b) { return IdBitArray().set(a).set(b); }

 private:
  String8 message_;
  std::string what_;
  IdBitArray idSet_;
  bool expected_;
};

// Announces, for as long as it lives, that this thread expects exceptions of one id. They are not traced. Scopes nest.
class KEL_API Expect {
 public:
  explicit Expect(Exception::Id id);
  ~Expect();
  Expect(Expect const&) = delete;
  Expect& operator=(Expect const&) = delete;

 private:
  Exception::Id id_;
};

#define KEL_EXCEPTION(Class, id)                                        \
  class KEL_API Class : public Exception {                              \
   public:                                                              \
    explicit Class(String8 message) : Exception(message, ids_(id)) {}   \
                                                                        \
   protected:                                                           \
    Class(String8 message, IdBitArray ids) : Exception(message, ids) {} \
  }

KEL_EXCEPTION(InternalException, internalId);                        // a broken invariant
KEL_EXCEPTION(RangeException, rangeId);                              // out of range, failed look-up, malformed text
KEL_EXCEPTION(UnknownAttrException, unknownAttrId);                  // a name that the type does not have
KEL_EXCEPTION(TypeException, typeId);                                // an object of the wrong type
KEL_EXCEPTION(NoImplementationException, noImplementationId);        // an operation without behaviour of its own
KEL_EXCEPTION(NameInUseException, nameInUseId);                      // a taken name or key
KEL_EXCEPTION(AttrLogEntityException, attrLogEntityId);              // attribute-log streaming: an entity
KEL_EXCEPTION(AttrLogRecordException, attrLogRecordId);              // attribute-log streaming: a record
KEL_EXCEPTION(EntityIdUnavailableException, entityIdUnavailableId);  // an entity without an id where one is needed
KEL_EXCEPTION(ConstException, constId);                              // a write through a handle to const
KEL_EXCEPTION(UnknownArgException, unknownArgId);                    // a call with an argument missing or unknown
KEL_EXCEPTION(BadIndexAttrException, badIndexId);                    // a key of the wrong type, or where none belongs
KEL_EXCEPTION(OpNotSupportedException, opNotSupportedId);            // an operation that the attribute does not offer
#undef KEL_EXCEPTION

// Each raises the exception of its name.
[[noreturn, gnu::cold]] KEL_API void throwInternalException(String8 const& message);
[[noreturn, gnu::cold]] KEL_API void throwRangeException(char const* message);
[[noreturn, gnu::cold]] KEL_API void throwRangeException(String8 const& message);
[[noreturn, gnu::cold]] KEL_API void throwNameInUseException(String8 const& message);
[[noreturn, gnu::cold]] KEL_API void throwNoImplementationException(char const* function);

// The exceptions of the reflective interface. `where` names the type and the attribute ("Cli::Session::Status::root");
// `what` says what was wrong.
[[noreturn, gnu::cold]] KEL_API void throwConstException(String8 const& where);
[[noreturn, gnu::cold]] KEL_API void throwTypeException(String8 const& where, String8 const& what);
[[noreturn, gnu::cold]] KEL_API void throwUnknownAttrException(String8 const& typeName, String8 const& attrName);
[[noreturn, gnu::cold]] KEL_API void throwUnknownArgException(String8 const& where, String8 const& what);
[[noreturn, gnu::cold]] KEL_API void throwBadIndexAttrException(String8 const& where, String8 const& what);
[[noreturn, gnu::cold]] KEL_API void throwOpNotSupportedException(String8 const& where, char const* operation);

}  // namespace Kel
