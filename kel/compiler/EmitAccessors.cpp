#include <algorithm>

#include "compiler/Emit.h"
#include "compiler/Names.h"
#include "compiler/TypeRules.h"

namespace kelc {

namespace {

// The accessors of one attribute. Templates that copy or destroy pointers need the complete type of the target, of
// which the header may know the name only. Accessors that use such templates are defined in the source.
class Accessors {
 public:
  Accessors(CppClass& into, Attribute const& attribute, CppTypes const& types)
      : class_(into),
        a_(attribute),
        types_(types),
        shape_(attribute.shape),
        x_(attribute.name.text),
        slot_(x_ + "_"),
        id_(x_ + "Attr"),
        newX_("new" + upperFirst(x_)),
        readers_(into.group()),
        writers_(attribute.has(Modifier::Kind::readonly) ? into.protectedGroup() : readers_) {
    Modifier const* const onChange = attribute.modifier(Modifier::Kind::onChange);
    if (onChange) after_ = onChange->operation.text + "();";
  }

  void add() {
    using Kind = Attribute::Kind;
    switch (a_.kind) {
      case Kind::value: return value();
      case Kind::pointer: return pointer();
      case Kind::singleton: return singleton();
      case Kind::values:
      case Kind::valuesByField:
      case Kind::pointers: return collection();
      case Kind::entities: return entities();
      case Kind::valueQueue: return valueQueue();
      case Kind::entityQueue: return entityQueue();
      case Kind::constant: return constant();
      case Kind::parameter: return;  // has a reader only
    }
  }

 private:
  // --- what several kinds share ---

  TypeRef const& target() const { return shape_.target; }
  TypeRef const& keyType() const { return shape_.kind == Shape::Kind::queue ? shape_.index : shape_.key.type; }
  std::string notified(std::string const& key = {}) const {
    return "notify(" + id_ + (key.empty() ? "" : ", &" + key) + ");";
  }
  void field(std::string const& type, std::string const& initial = {}, unsigned scalarSize = 0) {
    class_.fields.push_back({type + " " + slot_ + (initial.empty() ? ";" : " = " + initial + ";"), scalarSize});
  }
  CppMethod& read(std::string const& result, std::string const& name) { return readers_.add(result, name); }
  CppMethod& write(std::string const& result, std::string const& name) { return writers_.add(result, name); }
  bool holdsPointers() const { return target().isRef || (shape_.kind == Shape::Kind::keyed && keyType().isRef); }
  void define(CppMethod& method, std::string const& statement) const {
    if (holdsPointers()) {
      method.does({statement});
    } else {
      method.inlined(statement);
    }
  }

  // A call of one of the framework's functions for writes; `args` are those behind the attribute's id.
  std::string written(std::string const& function, std::string const& args = {}) const {
    return "Kel::" + function + "(*this, " + slot_ + ", " + id_ + (args.empty() ? "" : ", " + args) + ")";
  }
  // The statements, followed by the call of the `onChange` operation.
  Lines thenAfter(Lines body) const {
    if (!after_.empty()) body.push_back(after_);
    return body;
  }
  // A write that answers whether it changed something.
  Lines ifChanged(std::string const& change) const {
    return {after_.empty() ? change + ";" : "if (" + change + ") " + after_};
  }
  // A write whose result the accessor returns.
  Lines returned(std::string const& type, std::string const& var, std::string const& change) const {
    if (after_.empty()) return {"return " + change + ";"};
    return {type + " const " + var + " = " + change + ";", after_, "return " + var + ";"};
  }
  void addDelAll() { write("void", x_ + "DelAll").does({"Kel::deleteAllMembers(*this, " + id_ + ");"}); }

  void addNotify() {
    CppMethod& method = read("void", x_ + "Notify").asConst();
    if (a_.isCollection()) method.takes(types_.param(keyType()), keyName());
    method.inlined(notified(a_.isCollection() ? keyName() : ""));
  }
  std::string keyName() const { return shape_.kind == Shape::Kind::queue ? "index" : "key"; }
  void addCount() { read("Kel::U32", x_ + "s").asConst().inlined("return " + slot_ + ".members();"); }

  // Iterators through which no member can be changed.
  void addIterators(std::string const& storage) {
    std::string const type = upperFirst(x_) + "Iterator";
    class_.types.push_back("using " + type + " = " + storage + "::Iterator;");
    class_.types.push_back("using " + type + "Const = " + type + ";");
    for (std::string const suffix : {"", "Const"}) {
      define(read(type + suffix, x_ + "Iterator" + suffix).resultNested().asConst(),
             "return " + slot_ + ".iterator();");
    }
  }

  // --- single values ---

  void constant() {
    std::string const type = types_.type(target());
    std::string const prefix = isScalar(target()) ? "static constexpr" : "static";
    std::string const value = types_.initialValue(target(), a_.init);
    read(type, x_).prefixed(prefix).inlined("return " + value + ";");
  }

  void value() {
    std::string const initial = types_.initialValue(target(), a_.init);
    read(types_.param(target()), x_).asConst().inlined("return " + slot_ + ";");
    addSetter();
    if (a_.has(Modifier::Kind::inc)) write("void", x_ + "Inc").inlined(x_ + "Is(" + incremented() + ");");
    write("void", x_ + "Del").inlined(x_ + "Is(" + initial + ");");
    addNotify();
    field(types_.type(target()), types_.initial(target(), a_.init), scalarSize(target()));
  }

  // Wraps around, for signed types too.
  std::string incremented() const {
    std::string sum = slot_ + " + 1";
    if (target().builtin == Builtin::s32) sum = "static_cast<Kel::U32>(" + slot_ + ") + 1";
    if (target().builtin == Builtin::s64) sum = "static_cast<Kel::U64>(" + slot_ + ") + 1";
    return "static_cast<" + types_.type(target()) + ">(" + sum + ")";
  }

  void pointer() {
    read(types_.param(target()), x_).asConst().inlined("return " + slot_ + ";");
    addSetter();
    write("void", x_ + "Del").does({x_ + "Is(nullptr);"});
    addNotify();
    field(types_.type(target()));
  }

  void addSetter() {
    std::string const param = cppParam(x_);
    write("void", x_ + "Is").takes(types_.param(target()), param).does(ifChanged(written("writeValue", param)));
  }

  // --- collections of values and pointers ---

  std::string storage() const {
    std::string const key = types_.type(keyType());
    if (a_.has(Modifier::Kind::counter)) return "Kel::CounterMap<" + key + ">";
    return (shape_.key.ordered ? "Kel::RbTreeMap<" : "Kel::HashMap<") + key + ", " + types_.type(target()) + ">";
  }

  void collection() {
    std::string const key = types_.param(keyType());
    define(read(types_.type(target()), x_).takes(key, "key").asConst(), "return " + slot_ + ".value(key);");
    define(read("bool", x_ + "Has").takes(key, "key").asConst(), "return " + slot_ + ".find(key) != nullptr;");
    addValueWriters();
    if (a_.has(Modifier::Kind::counter)) addCounter();
    addValueDeleters();
    addCount();
    addIterators(storage());
    addNotify();
    field(storage());
  }

  void addValueWriters() {
    bool const byField = a_.kind == Attribute::Kind::valuesByField;
    std::string const key = byField ? "value." + shape_.key.field.text + "()" : "key";
    CppMethod& set = write("void", x_ + "Is");
    if (!byField) set.takes(types_.param(keyType()), "key");
    set.takes(types_.param(target()), "value");
    Lines body;
    if (byField) body.push_back(types_.type(keyType()) + " const key = " + key + ";");
    if (a_.has(Modifier::Kind::nonnull))
      body.push_back("if (!value) Kel::throwNullMember(*type()->attr(" + id_ + "));");
    Lines const change = ifChanged(written("writeMember", "key, value"));
    body.insert(body.end(), change.begin(), change.end());
    set.does(body);

    CppMethod& create = write("void", newX_);
    if (!byField) create.takes(types_.param(keyType()), "key");
    create.takes(types_.param(target()), "value");
    create.does(
        {"if (" + x_ + "Has(" + key + ")) Kel::throwTaken(type(), " + id_ + ", " + printed(keyType(), key) + ");",
         x_ + "Is(" + (byField ? "value" : "key, value") + ");"});
  }

  void addCounter() {
    write("void", x_ + "CounterInc")
        .takes(types_.param(keyType()), "key")
        .does(thenAfter({written("incrementCount", "key") + ";"}));
  }

  void addValueDeleters() {
    write("void", x_ + "Del").takes(types_.param(keyType()), "key").does(ifChanged(written("eraseValue", "key")));
    addDelAll();
  }

  static std::string printed(TypeRef const& type, std::string const& key) {
    if (type.builtin == Builtin::string) return key;
    if (!type.isRef) return "Kel::box(" + key + ")->text()";
    std::string const text = type.decl->qualified == "Kel::GenericIf" ? "text()" : "fullName()";
    return key + " ? " + key + "->" + text + " : Kel::String8()";
  }

  // --- owned entities ---

  EntityDecl const& member() const { return *entityDecl(target()); }
  std::string memberType() const { return types_.name(member()); }
  std::string ptr() const { return "Kel::Ptr<" + memberType() + ">"; }
  std::string ptrConst() const { return "Kel::Ptr<" + memberType() + " const>"; }

  // The constructor arguments of a member, without the first `skip`, which the owner supplies.
  std::vector<CppParam> makeParams(std::size_t skip = 0) const {
    std::vector<CppParam> all;
    for (Attribute const* p : member().allParams()) {
      if (skip > 0) {
        --skip;
      } else {
        all.push_back({types_.param(p->shape.target), cppParam(p->name.text)});
      }
    }
    return all;
  }
  static Lines names(std::vector<CppParam> const& params) {
    Lines all;
    for (CppParam const& p : params) all.push_back(p.name);
    return all;
  }
  std::string made(Lines const& args) const { return "new " + memberType() + "(" + joined(args) + ")"; }
  // The name of a local variable that differs from those of the parameters.
  static std::string local(std::string name, std::vector<CppParam> const& params) {
    auto const taken = [&] {
      return std::any_of(params.begin(), params.end(), [&](CppParam const& p) { return p.name == name; });
    };
    while (taken()) name += "Here";
    return name;
  }

  void singleton() {
    readers_.comment =
        "`" + newX_ + "` raises NameInUseException when there is one; `" + x_ + "Is` keeps one with the same key.";
    if (member().allParams().empty())
      readers_.comment = "`" + newX_ + "` raises NameInUseException when there is one; `" + x_ + "Is` keeps it.";
    read(ptr() + " const&", x_).inlined("return " + slot_ + ";");
    read(ptrConst(), x_).asConst().does({"return " + slot_ + ";"});
    std::vector<CppParam> const params = makeParams();
    Lines const put = putNew(params);
    Lines create = {"if (" + slot_ + ") Kel::throwTaken(type(), " + id_ + ", " + slot_ + "->name());"};
    create.insert(create.end(), put.begin(), put.end());
    write(ptr(), newX_).takes(params).does(create);
    std::string same;
    if (!params.empty()) same = " && " + slot_ + "->" + member().allParams()[0]->name.text + "() == " + params[0].name;
    Lines keep = {"if (" + slot_ + same + ") return " + slot_ + ";"};
    keep.insert(keep.end(), put.begin(), put.end());
    write(ptr(), x_ + "Is").takes(params).does(keep);
    if (isDirectory()) addWithParent();
    write("void", x_ + "Del").does(ifChanged("Kel::eraseSingleton(*this, " + memberSlot() + ", " + id_ + ")"));
    addNotify();
    field(ptr());
  }

  // A directory is made from a name and a parent. The owner of a singleton is its parent, whatever is given.
  bool isDirectory() const { return memberType() == "Kel::Dir"; }
  void addWithParent() {
    readers_.comment += " The owner is the directory's parent: a `parent` that is given gets no entry.";
    for (std::string const& method : {newX_, x_ + "Is"})
      write(ptr(), method)
          .takes({{"Kel::Name const&", "name"}, {ptr() + " const&", ""}})
          .inlined("return " + method + "(name);");
  }

  std::string memberSlot() const { return "&" + class_.name() + "::" + slot_; }
  Lines putNew(std::vector<CppParam> const& params) const {
    std::string const var = local("made", params);
    Lines body = thenAfter({ptr() + " const " + var + "(" + made(names(params)) + ");",
                            "Kel::putSingleton(*this, " + memberSlot() + ", " + id_ + ", " + var + ");"});
    body.push_back("return " + var + ";");
    return body;
  }

  void entities() {
    readers_.comment =
        "`" + newX_ + "` raises NameInUseException for a taken key; `" + x_ + "Is` answers the member that has it.";
    std::string const map = (shape_.key.ordered ? "Kel::EntityTree<" : "Kel::EntityMap<") + memberType() + ">";
    std::string const key = types_.param(keyType());
    std::string const iterator = upperFirst(x_) + "Iterator";
    read(ptr(), x_).takes(key, "key").does({"return " + ptr() + "(" + slot_ + ".find(key));"});
    read(ptrConst(), x_).takes(key, "key").asConst().does({"return " + ptrConst() + "(" + slot_ + ".find(key));"});
    addMemberWriters();
    addCount();
    class_.types.push_back("using " + iterator + " = " + map + "::Iterator;");
    class_.types.push_back("using " + iterator + "Const = " + map + "::IteratorConst;");
    read(iterator, x_ + "Iterator").inlined("return " + slot_ + ".iterator();");
    read(iterator + "Const", x_ + "IteratorConst").asConst().inlined("return " + slot_ + ".iteratorConst();");
    addNotify();
    field(map);
  }

  void addMemberWriters() {
    std::vector<CppParam> const params = makeParams();
    std::string const args = joined(names(params));
    std::string const insert = written("insertMember", ptr() + "(" + made(names(params)) + ")");
    write(ptr(), newX_).takes(params).does(returned(ptr(), local("made", params), insert));
    std::string const held = local("held", params);
    std::string const find = slot_ + ".find(" + params[0].name + ")";
    write(ptr(), x_ + "Is")
        .takes(params)
        .does({"if (" + memberType() + "* const " + held + " = " + find + ") return " + ptr() + "(" + held + ");",
               "return " + newX_ + "(" + args + ");"});
    write("void", x_ + "Del").takes(types_.param(keyType()), "key").does(ifChanged(written("eraseMember", "key")));
    addDelAll();
  }

  // --- queues ---

  std::string queueStorage(std::string const& held) const {
    return "Kel::LinkQueue<" + held + ", " + types_.type(keyType()) + ">";
  }

  void valueQueue() {
    std::string const index = types_.type(keyType());
    std::string const type = types_.type(target());
    write(index, x_ + "Enq")
        .takes(types_.param(target()), "value")
        .does(returned(index, "index", written("enqueueValue", "value")))
        .commented("The index that it got.");
    write(type, x_ + "Deq").does(returned(type, "value", written("dequeueValue")));
    read(type, x_).takes(index, "index").asConst().inlined("return " + slot_ + ".get(index);");
    write("void", x_ + "Del").takes(index, "index").does(ifChanged(written("eraseQueuedValue", "index")));
    addDelAll();
    addCount();
    addIterators(queueStorage(type));
    addNotify();
    field(queueStorage(type));
  }

  void entityQueue() {
    std::string const index = types_.type(keyType());
    addEnqueue();
    write(ptr(), x_ + "Deq")
        .does(returned(ptr(), "gone", written("dequeueMember")))
        .commented("The member, which has left the tree.");
    read(ptr(), x_)
        .takes(index, "index")
        .does({ptr() + " const* const held = " + slot_ + ".find(index);", "return held ? *held : " + ptr() + "();"});
    read(ptrConst(), x_)
        .takes(index, "index")
        .asConst()
        .does({ptr() + " const* const held = " + slot_ + ".find(index);", "return held ? *held : " + ptr() + "();"});
    write("void", x_ + "Del").takes(index, "index").does(ifChanged(written("eraseQueuedMember", "index")));
    addDelAll();
    addCount();
    addQueueIterators();
    addNotify();
    field(queueStorage(ptr()));
  }

  void addQueueIterators() {
    std::string const type = upperFirst(x_) + "Iterator";
    class_.types.push_back("using " + type + " = " + queueStorage(ptr()) + "::Iterator;");
    class_.types.push_back("using " + type + "Const = " + queueStorage(ptr()) + "::IteratorConst;");
    read(type, x_ + "Iterator").resultNested().does({"return " + slot_ + ".iterator();"});
    read(type + "Const", x_ + "IteratorConst").resultNested().asConst().does({"return " + slot_ + ".iteratorConst();"});
  }

  void addEnqueue() {
    bool const indexed = !member().allParams().empty();
    std::vector<CppParam> const params = makeParams(1);
    Lines args = names(params);
    if (indexed) args.insert(args.begin(), slot_ + ".nextIndex()");
    std::string const var = local("made", params);
    Lines body = thenAfter({ptr() + " const " + var + "(" + made(args) + ");", written("enqueueMember", var) + ";"});
    body.push_back("return " + var + ";");
    write(ptr(), x_ + "Enq").takes(params).does(body);
  }

  CppClass& class_;
  Attribute const& a_;
  CppTypes const& types_;
  Shape const& shape_;
  std::string const x_, slot_, id_, newX_;
  std::string after_;
  CppGroup& readers_;
  CppGroup& writers_;
};

}  // namespace

void addAccessors(CppClass& into, Attribute const& attribute, CppTypes const& types) {
  Accessors(into, attribute, types).add();
}

CppMethod operationMethod(Operation const& op, CppTypes const& types) {
  CppMethod method(op.result ? types.type(*op.result) : "void", op.name.text);
  for (Param const& p : op.params) method.takes(types.opParam(p.shape.target), p.name.text);
  if (op.isConst) method.asConst();
  if (op.binding == Operation::Binding::virtualOp) method.prefixed("virtual");
  if (op.binding == Operation::Binding::overrideOp) method.suffixed("override");
  return method;
}

}  // namespace kelc
