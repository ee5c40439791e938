// How values and constructor parameters are compared.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopyCompare.h"

#include "CliSession/EntityCopy/EngineImpl.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

// Fills `params`. Compares them with those of `dest`, if there is one.
bool collectParams(Kel::Entity const* dest, Kel::Entity const& src, Kel::KelAttr const& attr, ParamList const& params,
                   char const* signature) {
  static constexpr char const* operation = "constructorParams";
  KEL_TRACE_AS(3, operation) << (dest ? "Comparing" : "Extracting") << " constructor params for " << attr.name();
  bool differs = dest && dest->type() != src.type();
  Kel::GenericIf::PtrConst const srcGif = genericIf(&src), destGif = genericIf(dest);
  Kel::KelConstraint const args = attr.constraint();
  // A queue supplies the first parameter of its members, their index.
  for (unsigned int n = attr.isQueue() ? 1 : 0; Kel::KelArg const* arg = args.argPtr(n); ++n) {
    KEL_TRACE_AS(3, operation) << "Adding " << arg->name;
    Kel::GenericIf::PtrConst const value = srcGif->attribute(src.type()->getAttr(arg->name)->id());
    Kel::KelAttr const* const param = (dest ? *dest : src).type()->getAttr(arg->name);
    KEL_ASSERT_AS(!param->isPtr() || !value, "Pointers in constructor parameters are not supported by EntityCopy",
                  signature);
    params->objectEnq(value);
    if (!dest) continue;
    bool const equal = valueTypeEqual(destGif->attribute(param->id()), value);
    KEL_TRACE_AS(3, operation) << arg->name << (equal ? " does not differ" : " differs");
    differs |= !equal;
  }
  KEL_TRACE_AS(3, operation) << "Done " << (dest ? "comparing" : "extracting") << " constructor params for "
                             << attr.name();
  return differs;
}

}  // namespace

bool constructorParams(Kel::Ptr<Kel::Entity const> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                       Kel::KelAttr const& attr, ParamList const& params) {
  if (!dest) {
    constructorParams(src, attr, params);
    return true;
  }
  KEL_ASSERT_TEXT(src->type(), "srcT");
  KEL_ASSERT_TEXT(dest->type(), "destT");
  return collectParams(dest.ptr(), *src, attr, params, __PRETTY_FUNCTION__);
}

void constructorParams(Kel::Ptr<Kel::Entity const> const& src, Kel::KelAttr const& attr, ParamList const& params) {
  collectParams(nullptr, *src, attr, params, __PRETTY_FUNCTION__);
}

bool valueTypeEqual(Kel::GenericIf::PtrConst const& a, Kel::GenericIf::PtrConst const& b) {
  if (!a || !b) return !a && !b;
  Kel::KelType const* type = a->type();
  if (type != b->type()) return false;
  if (!type->isValue()) return a->object() == b->object();
  KEL_TRACE(4) << "Comparing " << (type->isBuiltin() ? "builtin " : type->isEnum() ? "enum " : "") << type->name();
  if (type->valueOps().equal) return a->valueEqual(*b);
  if (type->isBuiltin()) throw Kel::Exception("Unknown builtin type");
  Kel::KelAttr const* rep = type->valAttr();
  KEL_ASSERT_TEXT(!type->autoconvertToRepType() && rep, "No comparison operator found");
  KEL_TRACE(4) << "Convert " << type->name() << " to " << rep->type()->name();
  return valueTypeEqual(a->attribute(rep->id()), b->attribute(rep->id()));
}

bool attrEqual(Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& dest, Kel::GenericIf::PtrConst const& src) {
  KEL_TRACE(4) << "attrEqual: " << attr.name();
  if (!attr.type()->isEntity()) return valueTypeEqual(dest, src);
  if (!dest || !src) return !dest && !src;
  return !constructorParams(entityConstOf(dest), entityConstOf(src), attr, ParamList(new Kel::GenericIf::List));
}

void checkValue(Kel::KelAttr const& attr, Kel::KelType const& type) {
  KEL_TRACE(4) << "checkValue: " << attr.name();
  for (Kel::KelAttr const* field : type.attributeQ()) {
    KEL_TRACE(4) << "Checking " << field->name();
    KEL_ASSERT_TEXT(field->isValue() || field->isFunction(),
                    "Value types with attributes that are not value types are not "
                    "supported by EntityCopy");
  }
}

}  // namespace Cli::Session
