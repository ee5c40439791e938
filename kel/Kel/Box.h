// Conversions between C++ values and reflective objects.
#pragma once

#include "Kel/Entity.h"
#include "Kel/GenericIf.h"

namespace Kel {

// Whether T is a handle, and to what.
template <class T>
struct PtrTraits {
  static constexpr bool isPtr = false, isConst = false;
  using target = void;
};
template <class T>
struct PtrTraits<Ptr<T>> {
  static constexpr bool isPtr = true, isConst = std::is_const_v<T>;
  using target = std::remove_const_t<T>;
};
template <class T>
inline constexpr bool isPtrType = PtrTraits<T>::isPtr;
template <class T>
inline constexpr bool isConstPtrType = PtrTraits<T>::isConst;

// The type record of an argument or member; for a pointer, that of the target.
template <class T>
KelType const* typeOfArg() {
  if constexpr (isPtrType<T>)
    return TypeOf<typename PtrTraits<T>::target>::type();
  else
    return TypeOf<T>::type();
}

// The reflective object for a C++ value; null for a null pointer.
template <class T>
GenericIf::Ptr box(T const& value) {
  if constexpr (isPtrType<T>) {
    using Target = typename PtrTraits<T>::target;
    if constexpr (std::is_same_v<Target, GenericIf>)
      return GenericIf::Ptr(const_cast<GenericIf*>(value.ptr()));
    else if constexpr (!std::is_base_of_v<Entity, Target>)
      return GenericIf::ofObject(TypeOf<Target>::type(), value);
    else if constexpr (isConstPtrType<T>)
      return GenericIf::Ptr(const_cast<GenericIf*>(GenericIf::ofEntity(Ptr<Entity const>(value)).ptr()));
    else
      return GenericIf::ofEntity(Ptr<Entity>(value));
  } else {
    return GenericIf::of(value);
  }
}

// As `box`, but read-only if `constView` is set.
template <class T>
GenericIf::Ptr boxView(T const& value, bool constView) {
  if constexpr (isPtrType<T>) {
    if constexpr (std::is_base_of_v<Entity, typename PtrTraits<T>::target>)
      if (constView) return box(Ptr<typename PtrTraits<T>::target const>(value));
  }
  return box(value);
}

// The use of a reflective object, for error messages: an attribute, or an argument of a call or a constructor.
class Place {
 public:
  Place(String8 const& where) : where_(where) {}
  Place(String8 const& where, KelArg const& arg) : where_(where), arg_(&arg) {}
  // "Port::mtu", or "Port::reset(hard)".
  KEL_API String8 text() const;

 private:
  String8 const& where_;
  KelArg const* arg_ = nullptr;
};

[[noreturn, gnu::cold]] KEL_API void throwWrongType(Place const& where, KelType const* expected, GenericIf const* got);
// Raises TypeException if a value is null or of another type.
KEL_API void wantType(GenericIf const* value, KelType const* type, Place const& where);
// The entity behind a reflective object, or null for null. Raises TypeException if it is not of `type`, and
// ConstException if the object is read-only and `readOnly` is not set.
KEL_API Entity* unboxEntity(GenericIf const* value, KelType const* type, bool readOnly, Place const& where);

// The C++ value of a reflective object; null gives a null pointer. Raises TypeException or ConstException, with the
// place in the message.
template <class T>
T unbox(GenericIf const* value, Place const& where) {
  if constexpr (!isPtrType<T>) {
    wantType(value, TypeOf<T>::type(), where);
    return value->held<T>();
  } else {
    using Target = typename PtrTraits<T>::target;
    if constexpr (std::is_base_of_v<Entity, Target>) {
      return T(static_cast<Target*>(unboxEntity(value, TypeOf<Target>::type(), isConstPtrType<T>, where)));
    } else {
      if (!value) return nullptr;
      if constexpr (std::is_same_v<Target, GenericIf>) {
        return T(const_cast<GenericIf*>(value));
      } else {
        auto* object = dynamic_cast<Target const*>(value->object());
        if (!object) throwWrongType(where, TypeOf<Target>::type(), value);
        return T(object);
      }
    }
  }
}

}  // namespace Kel
