#include "FSTDynamic.h"

#include <map>
#include <sstream>

#include "FSTBasic.h"
#include "FSTLoad.h"
#include "FSTStringMap.h"
#include "FSTlib.h"

namespace {

std::map<std::string, FSTGeneric>& class_table() {
  static std::map<std::string, FSTGeneric> table;
  return table;
}

std::string class_name(std::string const& name) {
  return !name.empty() && name[0] == '$' ? name.substr(1) : name;
}

// The classes used by m and, through their machines, by each other: "$name" labels with the
// machines the table has for them now (an empty machine for a class not set).
void current_classes(FSTGeneric const& m, FSTSemiringBase const* semiring,
                     fst::vector<std::string>& names, fst::vector<FSTGeneric>& machines) {
  std::map<std::string, FSTGeneric> found;
  std::vector<FSTGeneric> work = {m};
  while (!work.empty()) {
    FSTGeneric next = work.back();
    work.pop_back();
    for (int label : next->input_alphabet()) {
      std::string const text = FSTstring_map[label];
      if (text.size() < 2 || text[0] != '$' || found.count(text)) continue;
      FSTGeneric machine = FSTDynamicGet(text);
      if (!machine) {
        machine = FSTBasic(semiring);
      } else if (machine->semiring() != semiring) {
        FSTFatal("FSTDynamic: class %s is in %s, the machine that uses it in %s", text.c_str(),
                 machine->semiring()->name, semiring->name);
      }
      found[text] = machine;
      work.push_back(machine);
    }
  }
  names.clear();
  machines.clear();
  for (auto const& [name, machine] : found) {
    names.push_back(name);
    machines.push_back(machine);
  }
}

}  // namespace

FSTDynamicRep::FSTDynamicRep(FSTGeneric const& base)
    : FSTRtnRep(base, fst::vector<std::string>(), fst::vector<FSTGeneric>(), false) {
  name = "FSTDynamic";
  reset();
}

void FSTDynamicRep::_refresh() const {
  fst::vector<std::string> names;
  fst::vector<FSTGeneric> machines;
  current_classes(top(), _semiring, names, machines);
  _bind(names, machines);
}

FSTGeneric FSTDynamic(FSTGeneric const& m) { return new FSTDynamicRep(m); }

void FSTDynamicSet(std::string const& name, FSTGeneric const& machine) {
  if (machine)
    class_table()[class_name(name)] = machine;
  else
    class_table().erase(class_name(name));
}

FSTGeneric FSTDynamicGet(std::string const& name) {
  auto found = class_table().find(class_name(name));
  return found == class_table().end() ? FSTGeneric() : found->second;
}

FSTGeneric FSTLoadDynamic(std::istream& is, char const* header, char const* file) {
  std::string base = header;
  base.erase(0, base.find("FSTDynamic") + 10);
  base.erase(0, base.find_first_not_of(" \t"));
  base.erase(base.find_last_not_of(" \t\r") + 1);
  if (base.empty()) FSTFatal("file: the header names no base machine (#FSTDynamic BASE)");
  std::string line;
  for (long number = 2; std::getline(is, line); ++number) {
    FSTReadingPlace::at_line(number);
    size_t const begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') continue;
    size_t const equals = line.find('=');
    if (equals == std::string::npos) FSTFatal("file: expected NAME = MACHINE");
    std::string name = line.substr(begin, equals - begin), spec = line.substr(equals + 1);
    name.erase(name.find_last_not_of(" \t") + 1);
    spec.erase(0, spec.find_first_not_of(" \t"));
    spec.erase(spec.find_last_not_of(" \t\r") + 1);
    if (name.empty() || spec.empty()) FSTFatal("file: expected NAME = MACHINE");
    FSTDynamicSet(name, FSTLoadBeside(spec, file));
  }
  return FSTDynamic(FSTLoadBeside(base, file));
}
