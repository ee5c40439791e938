// Callable attributes, and the creation of entities from their constructor arguments; see AttrStorage.h.
#pragma once

#include <tuple>
#include <utility>

#include "Kel/AttrAccess.h"
#include "Kel/Box.h"

namespace Kel {

// Finds the argument of that name; checks that every given name is known.
KEL_API GenericIf const* callArg(KelAttr const& attr, GenericIf::Args const& args, std::size_t n);
KEL_API void checkCallArgs(KelAttr const& attr, GenericIf::Args const& args);

// A callable attribute.
template <class F>
class OpAccess;
template <class R, class C, bool isConst, class F, class... A>
class OpAccessOf : public AttrAccess {
 public:
  explicit OpAccessOf(F function) : function_(function) {}
  GenericIf::Ptr call(KelAttr const& attr, Entity const& e, bool constView,
                      GenericIf::Args const& args) const override {
    if (constView && !isConst) throwConstException(attr.fullName());
    checkCallArgs(attr, args);
    return apply(attr, const_cast<C&>(static_cast<C const&>(e)), args, std::index_sequence_for<A...>());
  }

 private:
  template <std::size_t... I>
  GenericIf::Ptr apply(KelAttr const& attr, C& object, [[maybe_unused]] GenericIf::Args const& args,
                       std::index_sequence<I...>) const {
    // Braces: the arguments are checked in order before the call.
    std::tuple<std::decay_t<A>...> values{
        unbox<std::decay_t<A>>(callArg(attr, args, I), attr.fullName() + "(" + attr.args()[I].name + ")")...};
    if constexpr (std::is_void_v<R>) {
      (object.*function_)(std::get<I>(values)...);
      return nullptr;
    } else {
      return box(std::decay_t<R>((object.*function_)(std::get<I>(values)...)));
    }
  }
  F function_;
};
template <class R, class C, class... A>
class OpAccess<R (C::*)(A...)> final : public OpAccessOf<R, C, false, R (C::*)(A...), A...> {
  using OpAccessOf<R, C, false, R (C::*)(A...), A...>::OpAccessOf;
};
template <class R, class C, class... A>
class OpAccess<R (C::*)(A...) const> final : public OpAccessOf<R, C, true, R (C::*)(A...) const, A...> {
  using OpAccessOf<R, C, true, R (C::*)(A...) const, A...>::OpAccessOf;
};

// Creating an entity of type T from its constructor arguments.
template <class T, auto... Getter>
struct Construct {
  template <auto G>
  using Param = std::decay_t<decltype((std::declval<T const&>().*G)())>;
  static constexpr bool comparable = !(isPtrType<Param<Getter>> || ...);

  static Ptr<Entity> construct(std::vector<GenericIf::PtrConst> const& args, KelType const& type) {
    return constructWith(args, type, std::index_sequence_for<Param<Getter>...>());
  }
  static bool paramsEqual(Entity const& a, Entity const& b) {
    T const& x = static_cast<T const&>(a);
    T const& y = static_cast<T const&>(b);
    (void)x, (void)y;
    return (((x.*Getter)() == (y.*Getter)()) && ...);
  }
  // The same but for the first parameter.
  static bool furtherParamsEqual(Entity const& a, Entity const& b) {
    T const& x = static_cast<T const&>(a);
    T const& y = static_cast<T const&>(b);
    (void)x, (void)y;
    [[maybe_unused]] unsigned n = 0;
    return ((n++ == 0 || (x.*Getter)() == (y.*Getter)()) && ...);
  }
  static Entity* newLike(Entity const& like) {
    T const& x = static_cast<T const&>(like);
    (void)x;
    return new T((x.*Getter)()...);
  }

 private:
  template <std::size_t... I>
  static Ptr<Entity> constructWith([[maybe_unused]] std::vector<GenericIf::PtrConst> const& args, KelType const& type,
                                   std::index_sequence<I...>) {
    std::tuple<Param<Getter>...> values{
        unbox<Param<Getter>>(args[I].ptr(), type.fullTypeName() + "(" + type.ctorArgs()[I].name + ")")...};
    return Ptr<Entity>(new T(std::get<I>(values)...));
  }
};

}  // namespace Kel
