#include "compiler/Options.h"

#include <algorithm>
#include <string>

#include "compiler/Characters.h"
#include "compiler/Suggest.h"

namespace kelc {

char const usage[] =
    "usage: kelc [option]... FILE.kel\n"
    "Compiles a model to C++: the types that it declares, in NAME.h and NAME.cpp.\n"
    "  -I DIR              look for imported models below DIR, after the directory of\n"
    "                      the model that imports them; may be repeated (default: the\n"
    "                      working directory)\n"
    "  -o OUTDIR           write below OUTDIR (default: the working directory)\n"
    "  --name NAME         the path of the header on the include path, without its\n"
    "                      extension, as \"Zuk/PathTrie\" (default: the model's base name)\n"
    "  --export            mark types and functions for export from a shared library that\n"
    "                      is compiled with hidden symbols\n"
    "  --anchor SYMBOL     define the C symbol SYMBOL in the source: a link that asks for it\n"
    "                      gets the registrations of the model's types\n"
    "  --parts N           spread the definitions over N sources, NAME.cpp, NAME.2.cpp and so\n"
    "                      on, which can be compiled at the same time\n"
    "  --depfile FILE      write to FILE, as a rule of make, what the output depends on\n"
    "  --deptarget TARGET  the target of that rule (default: the header)\n"
    "  --stubs             print the signatures of the operations, and write nothing\n"
    "  --help              print this text\n";

namespace {

// A relative path that stays below its directory: the header must not escape from OUTDIR.
bool isName(std::string const& name) {
  std::filesystem::path const path(name);
  if (name.empty() || path.is_absolute() || !path.has_filename()) return false;
  for (auto const& part : path) {
    if (part == "." || part == "..") return false;
  }
  return name.find_first_of("\"\\\n") == std::string::npos;
}

std::string suggestion(std::string const& wrong) {
  Nearest nearest(wrong);
  for (char const* option :
       {"--name", "--export", "--anchor", "--parts", "--depfile", "--deptarget", "--stubs", "--help"})
    nearest.consider(option);
  return didYouMean(nearest.best());
}

// An identifier of C or C++, so that the output is well-formed.
bool isIdentifier(std::string const& text) {
  return !text.empty() && isLetter(text[0]) && std::all_of(text.begin(), text.end(), isWord);
}

class CommandLine {
 public:
  CommandLine(std::vector<std::string> const& args, Options& options) : args_(args), options_(options) {}

  std::string parse() {
    while (at_ < args_.size() && error_.empty()) argument(args_[at_++]);
    if (!error_.empty() || options_.help) return error_;
    if (options_.input.empty()) return "no model given";
    if (options_.name.empty()) options_.name = options_.input.stem().string();
    if (!isName(options_.name)) return "'" + options_.name + "' is not on the include path";
    if (!options_.anchor.empty() && !isIdentifier(options_.anchor))
      return "'" + options_.anchor + "' is not an identifier";
    if (options_.includeDirs.empty()) options_.includeDirs.emplace_back(".");
    return {};
  }

 private:
  void argument(std::string const& arg) {
    if (arg == "-I") {
      options_.includeDirs.emplace_back(valueOf(arg));
    } else if (arg.rfind("-I", 0) == 0) {
      options_.includeDirs.emplace_back(arg.substr(2));
    } else if (arg == "-o") {
      options_.outDir = valueOf(arg);
    } else if (arg == "--name") {
      options_.name = valueOf(arg);
    } else if (arg == "--export") {
      options_.exported = true;
    } else if (arg == "--anchor") {
      options_.anchor = valueOf(arg);
    } else if (arg == "--parts") {
      parts(valueOf(arg));
    } else if (arg == "--depfile") {
      options_.depfile = valueOf(arg);
    } else if (arg == "--deptarget") {
      options_.depTarget = valueOf(arg);
    } else if (arg == "--stubs") {
      options_.stubs = true;
    } else if (arg == "--help") {
      options_.help = true;
    } else if (arg.empty() || arg[0] == '-') {
      error_ = "unknown option '" + arg + "'" + suggestion(arg);
    } else if (!options_.input.empty()) {
      error_ = "more than one model given: '" + options_.input.string() + "' and '" + arg + "'";
    } else {
      options_.input = arg;
    }
  }

  void parts(std::string const& text) {
    if (!error_.empty()) return;
    bool const digits = std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (digits && text.size() <= 2) options_.parts = static_cast<unsigned>(std::stoul(text));
    if (!digits || text.size() > 2 || options_.parts == 0) error_ = "'--parts' needs a number from 1 to 99";
  }

  std::string valueOf(std::string const& option) {
    if (at_ < args_.size() && !args_[at_].empty()) return args_[at_++];
    error_ = "'" + option + "' needs a value";
    return {};
  }

  std::vector<std::string> const& args_;
  Options& options_;
  std::size_t at_ = 0;
  std::string error_;
};

}  // namespace

std::string parseOptions(std::vector<std::string> const& args, Options& options) {
  return CommandLine(args, options).parse();
}

}  // namespace kelc
