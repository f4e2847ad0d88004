#include "measurement/runtime/APMPProgramGenerator.h"

#include <cmath>
#include <vector>

#include "measurement/runtime/APMPProgramBuilder.h"

namespace {

using V = APMPRuntimeValue;

struct E {
  V tree;
  std::string js;
};

enum class Category { kScalar, kArray, kObject, kFunction };

struct Variable {
  std::string name;
  Category category;
  bool constant;
  int arity;  // functions
  bool loopCounter = false;  // never assigned: the loop must end
};

const char* const kStrings[] = {"",   "abc", "10",          "2",     " 7 ",   "a,b",  "Hello World",
                                "x-y-z", "0x1F", "1e3",     "b",     "aXbX",  "item_42_x", "Infinity",
                                "-3.5", "true", "null",     "k1",    "A-b-C", "  pad  "};
const double kNumbers[] = {0, 1, 2, 3, 5, 7, 10, -1, -4, 0.5, 1.25, -0.0, 100, 1e21, 0.1, 3.14, 255, 2147483647, -2147483649.0, 1e-7};
const char* const kPatterns[] = {"b", "X", "\\d+", "[a-z]+", "(\\w)(\\w)", "_(\\d+)_", "z", "-"};
const char* const kKeys[] = {"k0", "k1", "k2", "name", "val"};

std::string quote(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

std::string numberLiteral(double d) {
  if (d == 0 && std::signbit(d)) return "(-0)";
  return "(" + APMPNumberToString(d) + ")";
}

}  // namespace

struct APMPGeneratorState {
  std::mt19937_64& random;
  std::vector<std::vector<Variable>> scopes{{}};
  int counter = 0;
  int loopDepth = 0;      // loops enclosing the current statement (within the function)
  int functionDepth = 0;  // functions enclosing it
  bool inIteration = false;  // inside a for-of or for-in body: no array changes
  int statementBudget = 0;

  int pick(int n) { return static_cast<int>(random() % static_cast<std::uint64_t>(n)); }
  bool chance(int percent) { return pick(100) < percent; }
  std::string fresh(const char* prefix) { return prefix + std::to_string(counter++); }

  std::vector<const Variable*> visible(Category category, bool writableOnly = false) const {
    std::vector<const Variable*> out;
    for (const auto& scope : scopes) {
      for (const auto& v : scope) {
        if (v.category == category && (!writableOnly || !v.constant)) out.push_back(&v);
      }
    }
    return out;
  }

  void declare(Variable v) { scopes.back().push_back(std::move(v)); }

  // --- expressions ---

  E literal() {
    switch (pick(6)) {
      case 0:
      case 1: {
        double d = kNumbers[pick(sizeof kNumbers / sizeof kNumbers[0])];
        return {P::num(d), numberLiteral(d)};
      }
      case 2:
      case 3: {
        std::string s = kStrings[pick(sizeof kStrings / sizeof kStrings[0])];
        return {P::str(s), quote(s)};
      }
      case 4: {
        bool b = chance(50);
        return {P::boolean(b), b ? "true" : "false"};
      }
      default:
        if (chance(50)) return {P::call("45"), "null"};
        return {P::call("44"), "undefined"};
    }
  }

  E read(const Variable& v) { return {P::var(v.name), v.name}; }

  E binary(const char* command, const char* op, E a, E b) {
    return {P::call(command, {std::move(a.tree), std::move(b.tree)}),
            "(" + a.js + " " + op + " " + b.js + ")"};
  }

  // Any value but a function. `pure`: no calls and no property reads (safe to evaluate in
  // a branch not taken). `growthSafe`: its text is at most a literal longer than a scalar
  // variable's (no array-to-text, no concatenation of two variables).
  E expression(int depth, bool pure, bool growthSafe) {
    if (depth <= 0) return leaf(growthSafe);
    int choice = pick(pure ? 6 : 11);
    switch (choice) {
      case 0: return leaf(growthSafe);
      case 1: {
        static const char* const ops[][2] = {{"0", "+"}, {"37", "-"}, {"26", "*"}, {"10", "/"}, {"25", "%"}};
        int o = pick(5);
        if (o == 0 && growthSafe) {
          E a = leaf(true);
          E lit = literal();
          return chance(50) ? binary("0", "+", std::move(a), std::move(lit))
                            : binary("0", "+", std::move(lit), std::move(a));
        }
        return binary(ops[o][0], ops[o][1], expression(depth - 1, pure, growthSafe),
                      expression(depth - 1, pure, growthSafe));
      }
      case 2: {
        static const char* const ops[][2] = {{"12", "=="}, {"29", "!="}, {"20", "==="}, {"21", "!=="},
                                             {"18", ">"},  {"19", ">="}, {"23", "<"},   {"24", "<="}};
        int o = pick(8);
        return binary(ops[o][0], ops[o][1], expression(depth - 1, pure, false),
                      expression(depth - 1, pure, false));
      }
      case 3: {
        static const char* const ops[][2] = {{"56", "&"}, {"57", "<<"}, {"59", "|"}, {"60", ">>"}, {"61", ">>>"}, {"62", "^"}};
        int o = pick(6);
        return binary(ops[o][0], ops[o][1], expression(depth - 1, pure, false),
                      expression(depth - 1, pure, false));
      }
      case 4: {
        E a = expression(depth - 1, pure, growthSafe);
        switch (pick(4)) {
          case 0: return {P::call("27", {std::move(a.tree)}), "(-" + a.js + ")"};
          case 1: return {P::call("28", {std::move(a.tree)}), "(!" + a.js + ")"};
          case 2: return {P::call("58", {std::move(a.tree)}), "(~" + a.js + ")"};
          default: return {P::call("40", {std::move(a.tree)}), "(typeof " + a.js + ")"};
        }
      }
      case 5: {
        if (chance(50)) {
          E c = expression(depth - 1, true, false);
          E a = expression(depth - 1, true, growthSafe);
          E b = expression(depth - 1, true, growthSafe);
          return {P::call("39", {std::move(c.tree), std::move(a.tree), std::move(b.tree)}),
                  "(" + c.js + " ? " + a.js + " : " + b.js + ")"};
        }
        E a = expression(depth - 1, pure, growthSafe);
        E b = expression(depth - 1, pure, growthSafe);
        bool isAnd = chance(50);
        return binary(isAnd ? "1" : "30", isAnd ? "&&" : "||", std::move(a), std::move(b));
      }
      case 6: return growthSafe ? leaf(true) : compound(depth - 1);
      case 7: return propertyRead(depth - 1, growthSafe);
      case 8: return growthSafe ? leaf(true) : arrayMethod(depth - 1);
      case 9: return stringMethod(depth - 1, growthSafe);
      default: return functionCall(depth - 1, growthSafe);
    }
  }

  E leaf(bool growthSafe) {
    auto scalars = visible(Category::kScalar);
    if (!scalars.empty() && chance(55)) return read(*scalars[static_cast<std::size_t>(pick(static_cast<int>(scalars.size())))]);
    if (!growthSafe && chance(25)) {
      auto arrays = visible(Category::kArray);
      auto objects = visible(Category::kObject);
      if (!arrays.empty() && chance(60)) return read(*arrays[static_cast<std::size_t>(pick(static_cast<int>(arrays.size())))]);
      if (!objects.empty()) return read(*objects[static_cast<std::size_t>(pick(static_cast<int>(objects.size())))]);
    }
    return literal();
  }

  E compound(int depth) {
    if (chance(50)) {
      int n = pick(4);
      std::vector<V> elements;
      std::string js = "[";
      for (int i = 0; i < n; ++i) {
        E e = expression(depth, false, false);
        elements.push_back(std::move(e.tree));
        js += (i ? ", " : "") + e.js;
      }
      return {P::call("7", std::move(elements)), js + "]"};
    }
    int n = pick(3);
    std::vector<V> pairs;
    std::string js = "({";
    std::vector<std::string> used;
    for (int i = 0; i < n; ++i) {
      std::string key = kKeys[pick(5)];
      bool dup = false;
      for (auto& u : used) dup = dup || u == key;
      if (dup) continue;
      used.push_back(key);
      E e = expression(depth, false, false);
      pairs.push_back(P::str(key));
      pairs.push_back(std::move(e.tree));
      js += (used.size() > 1 ? ", " : "") + key + ": " + e.js;
    }
    return {P::call("8", std::move(pairs)), js + "})"};
  }

  E arrayValue(int depth) {
    auto arrays = visible(Category::kArray);
    if (!arrays.empty() && chance(75)) return read(*arrays[static_cast<std::size_t>(pick(static_cast<int>(arrays.size())))]);
    int n = pick(5);
    std::vector<V> elements;
    std::string js = "[";
    for (int i = 0; i < n; ++i) {
      E e = chance(70) ? literal() : expression(depth, false, false);
      elements.push_back(std::move(e.tree));
      js += (i ? ", " : "") + e.js;
    }
    return {P::call("7", std::move(elements)), js + "]"};
  }

  E propertyRead(int depth, bool growthSafe) {
    switch (pick(4)) {
      case 0: {
        E a = arrayValue(depth);
        if (chance(40)) return {P::call("16", {std::move(a.tree), P::str("length")}), a.js + ".length"};
        E i;
        if (chance(70)) {
          int k = pick(4);
          i = {P::num(k), std::to_string(k)};
        } else {
          i = expression(depth, false, true);
        }
        E r{P::call("17", {std::move(a.tree), std::move(i.tree)}), a.js + "[" + i.js + "]"};
        return growthSafe ? E{P::call("40", {std::move(r.tree)}), "(typeof " + r.js + ")"} : r;
      }
      case 1: {
        auto objects = visible(Category::kObject);
        if (objects.empty()) return leaf(growthSafe);
        const Variable& o = *objects[static_cast<std::size_t>(pick(static_cast<int>(objects.size())))];
        std::string key = kKeys[pick(5)];
        E r{P::call("16", {P::var(o.name), P::str(key)}), o.name + "." + key};
        return growthSafe ? E{P::call("40", {std::move(r.tree)}), "(typeof " + r.js + ")"} : r;
      }
      case 2: {
        E s = leaf(true);
        return {P::call("16", {std::move(s.tree), P::str("length")}), s.js + ".length"};
      }
      default: {
        E s = leaf(true);
        E i{P::num(pick(3)), ""};
        i.js = APMPNumberToString(i.tree.numberPayload());
        return {P::call("17", {std::move(s.tree), std::move(i.tree)}), s.js + "[" + i.js + "]"};
      }
    }
  }

  // A callback: function (p0, p1) { return expr; } with pure-enough body.
  E callback(int parameters, int depth) {
    std::vector<std::string> names;
    scopes.emplace_back();
    for (int i = 0; i < parameters; ++i) {
      names.push_back(fresh("p"));
      declare({names.back(), Category::kScalar, false, 0});
    }
    E body = expression(depth, false, false);
    scopes.pop_back();
    std::string js = "function (";
    for (int i = 0; i < parameters; ++i) js += (i ? ", " : "") + names[static_cast<std::size_t>(i)];
    js += ") { return " + body.js + "; }";
    return {P::function("", names, {P::ret(std::move(body.tree))}), "(" + js + ")"};
  }

  E methodCall(E target, const std::string& name, std::vector<E> arguments) {
    std::vector<V> trees;
    std::string js = target.js + "." + name + "(";
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      js += (i ? ", " : "") + arguments[i].js;
      trees.push_back(std::move(arguments[i].tree));
    }
    return {P::method(std::move(target.tree), name, std::move(trees)), js + ")"};
  }

  E arrayMethod(int depth) {
    E a = arrayValue(depth);
    auto smallNumber = [&] {
      int n = pick(7) - 3;
      return E{P::num(n), numberLiteral(n)};
    };
    switch (pick(11)) {
      case 0: return methodCall(std::move(a), "slice", {smallNumber(), smallNumber()});
      case 1: return methodCall(std::move(a), chance(50) ? "indexOf" : "lastIndexOf", {literal()});
      case 2: return methodCall(std::move(a), "join", {chance(50) ? literal() : E{P::str("-"), "\"-\""}});
      case 3: return methodCall(std::move(a), "concat", {compound(0), literal()});
      case 4: return methodCall(std::move(a), "map", {callback(2, depth)});
      case 5: return methodCall(std::move(a), "filter", {callback(1, depth)});
      case 6: return methodCall(std::move(a), chance(50) ? "some" : "every", {callback(1, depth)});
      case 7: {
        std::vector<E> args{callback(2, depth)};
        if (chance(60)) args.push_back(literal());
        return methodCall(std::move(a), chance(50) ? "reduce" : "reduceRight", std::move(args));
      }
      case 8: return methodCall(std::move(a), "hasOwnProperty", {smallNumber()});
      case 9: return methodCall(std::move(a), "toString", {});
      default: return methodCall(std::move(a), "forEach", {callback(1, depth)});
    }
  }

  E stringMethod(int depth, bool growthSafe) {
    E s = literal();
    if (chance(60)) {
      E v = leaf(true);
      s = {P::call("0", {std::move(v.tree), P::str("")}), "(" + v.js + " + \"\")"};
    } else if (!s.tree.isString()) {
      s = {P::str("Hello World"), "\"Hello World\""};
    }
    auto number = [&] {
      int n = pick(9) - 3;
      return E{P::num(n), numberLiteral(n)};
    };
    auto pattern = [&] {
      std::string p = kPatterns[pick(sizeof kPatterns / sizeof kPatterns[0])];
      return E{P::str(p), quote(p)};
    };
    switch (pick(growthSafe ? 11 : 14)) {
      case 0: return methodCall(std::move(s), "charAt", {number()});
      case 1: return methodCall(std::move(s), chance(50) ? "indexOf" : "lastIndexOf", {literal()});
      case 2: return methodCall(std::move(s), "slice", {number(), number()});
      case 3: return methodCall(std::move(s), "substring", {number(), number()});
      case 4: return methodCall(std::move(s), chance(50) ? "toUpperCase" : "toLowerCase", {});
      case 5: return methodCall(std::move(s), "trim", {});
      case 6: return methodCall(std::move(s), "search", {pattern()});
      case 7: return methodCall(std::move(s), "hasOwnProperty", {number()});
      case 8: return methodCall(std::move(s), "toString", {});
      case 9: {
        std::string r = chance(30) ? "[$&]" : "_";
        return methodCall(std::move(s), "replace", {literal(), E{P::str(r), quote(r)}});
      }
      case 10: return methodCall(std::move(s), chance(50) ? "toLocaleUpperCase" : "toLocaleLowerCase", {});
      case 11: return methodCall(std::move(s), "split", {literal(), number()});
      case 12: return methodCall(std::move(s), "match", {pattern()});
      default: return methodCall(std::move(s), "concat", {literal(), expression(depth, false, false)});
    }
  }

  E functionCall(int depth, bool growthSafe) {
    auto functions = visible(Category::kFunction);
    if (functions.empty()) return leaf(growthSafe);
    const Variable& f = *functions[static_cast<std::size_t>(pick(static_cast<int>(functions.size())))];
    std::vector<V> arguments;
    std::string js = f.name + "(";
    for (int i = 0; i < f.arity; ++i) {
      E a = expression(depth, false, growthSafe);
      arguments.push_back(std::move(a.tree));
      js += (i ? ", " : "") + a.js;
    }
    E r{P::call(f.name, std::move(arguments)), js + ")"};
    // Function results may be anything; keep them from growing text.
    if (growthSafe) return {P::call("40", {std::move(r.tree)}), "(typeof " + r.js + ")"};
    return r;
  }

  // --- statements ---

  void statements(int count, int depth, std::vector<V>* trees, std::string* js) {
    for (int i = 0; i < count && statementBudget > 0; ++i) {
      --statementBudget;
      E s = statement(depth);
      trees->push_back(std::move(s.tree));
      *js += s.js + "\n";
    }
  }

  E block(int count, int depth, V* list) {
    scopes.emplace_back();
    std::vector<V> trees;
    std::string js = "{\n";
    statements(count, depth, &trees, &js);
    scopes.pop_back();
    *list = P::list(std::move(trees));
    return {V(), js + "}"};
  }

  E declaration() {
    std::string name = fresh("v");
    bool constant = chance(20);
    Category category;
    E init;
    int kind = pick(10);
    if (kind < 5) {
      category = Category::kScalar;
      init = expression(2, false, true);
    } else if (kind < 8) {
      category = Category::kArray;
      int n = pick(5);
      std::vector<V> elements;
      std::string js = "[";
      for (int i = 0; i < n; ++i) {
        E e = chance(80) ? literal() : expression(1, false, true);
        elements.push_back(std::move(e.tree));
        js += (i ? ", " : "") + e.js;
      }
      init = {P::call("7", std::move(elements)), js + "]"};
    } else {
      category = Category::kObject;
      init = compound(1);
      if (init.js[0] == '[') {
        init = {P::call("8", {P::str("k0"), P::num(1)}), "({k0: 1})"};
      }
    }
    declare({name, category, constant, 0});
    return {P::call(constant ? "52" : "41", {P::str(name), std::move(init.tree)}),
            std::string(constant ? "const " : "let ") + name + " = " + init.js + ";"};
  }

  E functionDeclaration(int depth) {
    std::string name = fresh("f");
    if (chance(40)) {
      // A maker of counters: a closure over a variable of its own.
      std::string cell = fresh("c");
      int step = pick(3) + 1;
      V inner = P::function("", {}, {P::assign(cell, P::call("0", {P::var(cell), P::num(step)})),
                                     P::ret(P::var(cell))});
      V maker = P::function("", {}, {P::let(cell, P::num(0)), P::ret(inner)});
      std::string made = fresh("g");
      std::string js = "let " + name + " = function () { let " + cell + " = 0; return function () { " +
                       cell + " = " + cell + " + " + std::to_string(step) + "; return " + cell +
                       "; }; };\nconst " + made + " = " + name + "();";
      declare({made, Category::kFunction, true, 0});
      return {P::call("5", {P::list({P::let(name, maker), P::call("52", {P::str(made), P::call(name)})})}), js};
    }
    int arity = pick(3);
    std::vector<std::string> names;
    scopes.emplace_back();
    for (int i = 0; i < arity; ++i) {
      names.push_back(fresh("p"));
      declare({names.back(), Category::kScalar, false, 0});
    }
    int savedLoops = loopDepth;
    bool savedIteration = inIteration;
    loopDepth = 0;
    inIteration = true;
    ++functionDepth;
    std::vector<V> body;
    std::string js = "let " + name + " = function (";
    for (int i = 0; i < arity; ++i) js += (i ? ", " : "") + names[static_cast<std::size_t>(i)];
    js += ") {\n";
    statements(pick(3), depth - 1, &body, &js);
    E result = expression(2, false, true);
    body.push_back(P::ret(std::move(result.tree)));
    js += "return " + result.js + ";\n}";
    --functionDepth;
    loopDepth = savedLoops;
    inIteration = savedIteration;
    scopes.pop_back();
    declare({name, Category::kFunction, false, arity});
    return {P::let(name, P::function("", names, std::move(body))), js + ";"};
  }

  E statement(int depth) {
    int choice = pick(depth > 0 ? 16 : 7);
    switch (choice) {
      case 0:
      case 1: return declaration();
      case 2: {
        auto scalars = visible(Category::kScalar, false);
        std::erase_if(scalars, [](const Variable* v) { return v->loopCounter; });
        if (scalars.empty()) return declaration();
        const Variable& v = *scalars[static_cast<std::size_t>(pick(static_cast<int>(scalars.size())))];
        // Sometimes a constant: the write must fail in both.
        E value = expression(2, false, true);
        return {P::assign(v.name, std::move(value.tree)), v.name + " = " + value.js + ";"};
      }
      case 3: {
        if (inIteration) return declaration();
        auto arrays = visible(Category::kArray);
        if (arrays.empty()) return declaration();
        const Variable& a = *arrays[static_cast<std::size_t>(pick(static_cast<int>(arrays.size())))];
        E target = read(a);
        switch (pick(9)) {
          case 0: {
            E e = expression(1, false, true);
            E m = methodCall(std::move(target), "push", {std::move(e)});
            return {std::move(m.tree), m.js + ";"};
          }
          case 1: { E m = methodCall(std::move(target), chance(50) ? "pop" : "shift", {}); return {std::move(m.tree), m.js + ";"}; }
          case 2: { E m = methodCall(std::move(target), "unshift", {literal()}); return {std::move(m.tree), m.js + ";"}; }
          case 3: { E m = methodCall(std::move(target), "reverse", {}); return {std::move(m.tree), m.js + ";"}; }
          case 4: { E m = methodCall(std::move(target), "sort", {}); return {std::move(m.tree), m.js + ";"}; }
          case 5: {
            int start = pick(4) - 1, count = pick(3);
            E m = methodCall(std::move(target), "splice",
                             {E{P::num(start), numberLiteral(start)}, E{P::num(count), numberLiteral(count)}, literal()});
            return {std::move(m.tree), m.js + ";"};
          }
          case 6: {
            E e = expression(1, false, true);
            return {P::call("43", {P::var(a.name), P::num(0), std::move(e.tree)}), a.name + "[0] = " + e.js + ";"};
          }
          case 7: {
            E e = expression(1, false, true);
            return {P::call("43", {P::var(a.name), P::call("16", {P::var(a.name), P::str("length")}), std::move(e.tree)}),
                    a.name + "[" + a.name + ".length] = " + e.js + ";"};
          }
          default: {
            // Numbers only, so that the comparator is consistent.
            std::string x = fresh("p"), y = fresh("p");
            V cmp = P::function("", {x, y}, {P::ret(P::call("37", {P::call("26", {P::var(x), P::num(1)}), P::call("26", {P::var(y), P::num(1)})}))});
            V numbers = P::call("7", {P::num(pick(9)), P::num(pick(9) - 4), P::num(0.5), P::num(pick(20))});
            return {P::call("13", {P::assign(a.name, numbers), P::method(P::var(a.name), "sort", {cmp})}),
                    "(" + a.name + " = [" + APMPNumberToString(numbers.asStatement()->arguments()[0].numberPayload()) + ", " +
                        numberLiteral(numbers.asStatement()->arguments()[1].numberPayload()) + ", 0.5, " +
                        APMPNumberToString(numbers.asStatement()->arguments()[3].numberPayload()) + "], " + a.name +
                        ".sort(function (" + x + ", " + y + ") { return (" + x + " * 1) - (" + y + " * 1); }));"};
          }
        }
      }
      case 4: {
        auto objects = visible(Category::kObject);
        if (objects.empty()) return declaration();
        const Variable& o = *objects[static_cast<std::size_t>(pick(static_cast<int>(objects.size())))];
        std::string key = kKeys[pick(5)];
        E e = expression(1, false, true);
        return {P::call("43", {P::var(o.name), P::str(key), std::move(e.tree)}), o.name + "." + key + " = " + e.js + ";"};
      }
      case 5: {
        E e = functionCall(1, false);
        return {std::move(e.tree), e.js + ";"};
      }
      case 6: {
        if (loopDepth > 0 && chance(50)) {
          E c = expression(1, false, false);
          bool isBreak = chance(50);
          return {P::call("22", {std::move(c.tree), P::list({P::call(isBreak ? "4" : "6")})}),
                  "if (" + c.js + ") { " + (isBreak ? "break" : "continue") + "; }"};
        }
        if (functionDepth > 0 && chance(30)) {
          E c = expression(1, false, false);
          E r = expression(1, false, true);
          return {P::call("22", {std::move(c.tree), P::list({P::ret(std::move(r.tree))})}),
                  "if (" + c.js + ") { return " + r.js + "; }"};
        }
        return declaration();
      }
      case 7:
      case 8: {
        E c = expression(2, false, false);
        V thenList, elseList;
        E thenBlock = block(pick(3) + 1, depth - 1, &thenList);
        if (chance(50)) {
          E elseBlock = block(pick(2) + 1, depth - 1, &elseList);
          return {P::call("22", {std::move(c.tree), thenList, elseList}),
                  "if (" + c.js + ") " + thenBlock.js + " else " + elseBlock.js};
        }
        return {P::call("22", {std::move(c.tree), thenList}), "if (" + c.js + ") " + thenBlock.js};
      }
      case 9: {
        // for (let i = 0; i < n; i = i + 1) { ... }
        std::string i = fresh("i");
        int n = pick(4);
        scopes.emplace_back();
        declare({i, Category::kScalar, false, 0, true});
        ++loopDepth;
        V body;
        E b = block(pick(3) + 1, depth - 1, &body);
        --loopDepth;
        scopes.pop_back();
        return {P::call("63", {P::let(i, P::num(0)), P::call("23", {P::var(i), P::num(n)}),
                               P::assign(i, P::call("0", {P::var(i), P::num(1)})), body}),
                "for (let " + i + " = 0; " + i + " < " + std::to_string(n) + "; " + i + " = " + i + " + 1) " + b.js};
      }
      case 10: {
        // let w = 0; while (w < n) { w = w + 1; ... }  or the do-while form.
        std::string w = fresh("w");
        int n = pick(4);
        bool doWhile = chance(40);
        declare({w, Category::kScalar, false, 0, true});
        ++loopDepth;
        V body;
        E b = block(pick(3) + 1, depth - 1, &body);
        --loopDepth;
        std::vector<V> withStep{P::assign(w, P::call("0", {P::var(w), P::num(1)}))};
        for (const auto& s : body.asArray()->elements()) withStep.push_back(s);
        std::string stepJs = "{ " + w + " = " + w + " + 1;\n" + b.js.substr(1);
        V condition = P::call("23", {P::var(w), P::num(n)});
        V loop = doWhile ? P::call("42", {condition, P::list(std::move(withStep)), P::boolean(true)})
                         : P::call("42", {condition, P::list(std::move(withStep))});
        std::string js = doWhile ? "do " + stepJs + " while (" + w + " < " + std::to_string(n) + ");"
                                 : "while (" + w + " < " + std::to_string(n) + ") " + stepJs;
        // Nothing else writes the counter (loopCounter), so the loop ends.
        return {P::call("5", {P::list({P::let(w, P::num(0)), loop})}), "let " + w + " = 0;\n" + js};
      }
      case 11:
      case 12: {
        // for-of over an array or a string, for-in over an object or an array.
        bool of = choice == 11;
        E subject;
        if (of) {
          subject = chance(60) ? arrayValue(1) : literal();
          if (!subject.tree.isString() && !(subject.tree.isStatement() && subject.tree.asStatement()->command() != 44 &&
                                            subject.tree.asStatement()->command() != 45)) {
            std::string s = "loop";
            subject = {P::str(s), quote(s)};
          }
        } else {
          auto objects = visible(Category::kObject);
          subject = (!objects.empty() && chance(60)) ? read(*objects[static_cast<std::size_t>(pick(static_cast<int>(objects.size())))]) : arrayValue(1);
        }
        std::string x = fresh("x");
        int binding = pick(3);  // plain, let, const
        std::string prefix;
        V pre;
        if (binding == 0) {
          declare({x, Category::kScalar, false, 0});
          prefix = "let " + x + ";\n";
        }
        scopes.emplace_back();
        if (binding != 0) declare({x, Category::kScalar, binding == 2, 0, binding == 2});
        ++loopDepth;
        bool savedIteration = inIteration;
        inIteration = true;
        V body;
        E b = block(pick(3) + 1, depth - 1, &body);
        inIteration = savedIteration;
        --loopDepth;
        scopes.pop_back();
        static const char* const commands[2][3] = {{"47", "54", "55"}, {"64", "65", "66"}};
        static const char* const keywords[3] = {"", "let ", "const "};
        V loop = P::call(commands[of][binding], {P::str(x), std::move(subject.tree), body});
        std::string js = prefix + "for (" + keywords[binding] + x + (of ? " of " : " in ") + subject.js + ") " + b.js;
        if (binding == 0) return {P::call("5", {P::list({P::let(x, P::call("44")), loop})}), js};
        return {loop, js};
      }
      case 13: {
        auto scalars = visible(Category::kScalar);
        E subject = scalars.empty() ? literal() : read(*scalars[static_cast<std::size_t>(pick(static_cast<int>(scalars.size())))]);
        std::vector<V> cases;
        std::string js = "switch (" + subject.js + ") {\n";
        int n = pick(3) + 1;
        bool hasDefault = false;
        for (int i = 0; i < n; ++i) {
          V body;
          scopes.emplace_back();
          std::vector<V> trees;
          std::string bodyJs;
          statements(pick(2) + 1, depth - 1, &trees, &bodyJs);
          scopes.pop_back();
          bool withBreak = chance(60);
          if (withBreak) {
            trees.push_back(P::call("4"));
            bodyJs += "break;\n";
          }
          if (!hasDefault && chance(25)) {
            hasDefault = true;
            cases.push_back(P::list({P::list(std::move(trees))}));
            js += "default: {\n" + bodyJs + "}\n";
          } else {
            E test = literal();
            cases.push_back(P::list({std::move(test.tree), P::list(std::move(trees))}));
            js += "case " + test.js + ": {\n" + bodyJs + "}\n";
          }
        }
        return {P::call("38", {std::move(subject.tree), P::list(std::move(cases))}), js + "}"};
      }
      case 14: return functionDeclaration(depth);
      default: {
        V list;
        E b = block(pick(3) + 1, depth - 1, &list);
        return {P::call("53", {list}), b.js};
      }
    }
  }
};

APMPGeneratedProgram APMPProgramGenerator::next() {
  APMPGeneratorState state{random_};
  state.statementBudget = 8 + state.pick(14);
  std::vector<V> trees;
  std::string js;
  state.statements(state.statementBudget, 3, &trees, &js);
  // The result: every top-level value but functions, then one more expression.
  std::vector<V> results;
  std::string resultJs = "return [";
  for (const auto& v : state.scopes.front()) {
    if (v.category == Category::kFunction) continue;
    results.push_back(P::var(v.name));
    resultJs += (results.size() > 1 ? ", " : "") + v.name;
  }
  E last = state.expression(3, false, false);
  results.push_back(std::move(last.tree));
  resultJs += (results.size() > 1 ? ", " : "") + last.js + "];";
  trees.push_back(P::ret(P::call("7", std::move(results))));
  return {P::list(std::move(trees)), js + resultJs};
}

const char* APMPProgramGenerator::javaScriptDescriber() {
  return R"JS(function describe(v, depth) {
  depth = depth || 0;
  if (depth > 6) return "...";
  if (v === undefined) return "undefined";
  if (v === null) return "null";
  if (typeof v === "number") return String(v);
  if (typeof v === "boolean") return String(v);
  if (typeof v === "string") return JSON.stringify(v);
  if (typeof v === "function") return "function";
  if (Array.isArray(v)) {
    const parts = [];
    for (let i = 0; i < v.length; i++) parts.push(describe(v[i], depth + 1));
    return "[" + parts.join(",") + "]";
  }
  const parts = [];
  for (const k of Object.keys(v)) parts.push(JSON.stringify(k) + ":" + describe(v[k], depth + 1));
  return "{" + parts.join(",") + "}";
}
)JS";
}

namespace {

void describeInto(std::string& out, const V& v, int depth) {
  if (depth > 6) {
    out += "...";
    return;
  }
  switch (v.kind()) {
    case APMPValueKind::kString: {
      out += '"';
      for (char c : v.stringPayload()) {
        if (c == '"' || c == '\\') {
          out += '\\';
          out += c;
        } else if (c == '\n') {
          out += "\\n";
        } else if (c == '\t') {
          out += "\\t";
        } else if (c == '\r') {
          out += "\\r";
        } else {
          out += c;
        }
      }
      out += '"';
      return;
    }
    case APMPValueKind::kFunction: out += "function"; return;
    case APMPValueKind::kArray: {
      out += '[';
      const auto* a = v.asArray();
      for (std::size_t i = 0; i < a->size(); ++i) {
        if (i) out += ',';
        describeInto(out, a->at(i), depth + 1);
      }
      out += ']';
      return;
    }
    case APMPValueKind::kMap: {
      out += '{';
      bool first = true;
      for (const auto& [k, e] : v.asMap()->entries()) {
        if (!first) out += ',';
        first = false;
        // Keys print as they are, whatever the depth (as the reference printer does).
        out += '"';
        out += k;
        out += "\":";
        describeInto(out, e, depth + 1);
      }
      out += '}';
      return;
    }
    default: out += v.stringValue(); return;
  }
}

}  // namespace

std::string APMPDescribeResult(const APMPRuntimeValue& value) {
  std::string out;
  describeInto(out, value, 0);
  return out;
}
