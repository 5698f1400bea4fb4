// Dynamic classes: the lazy view of a machine in which every arc whose input label names a class
// ("$name") is a call of the class's current machine, as in a recursive transition network
// (FSTRtn: entered at its initial state, left from its final states to the arc's destination; the
// arc's weight is paid on the way in). Classes may use classes. A class that is not set matches
// nothing. The view reads the process-wide class table when it is made and again at each
// reset(), so FSTDynamicSet changes the machines made after it and those reset after it. Costs
// are the network's: states are discovered on demand.
//
// The "#FSTDynamic BASE" file: the header names the base machine (a file beside the dynamic
// file, or an expression); each following line "NAME = SPEC" sets a class first.
#ifndef T2SFST_FSTDYNAMIC_H
#define T2SFST_FSTDYNAMIC_H

#include <iosfwd>
#include <string>

#include "FSTRtn.h"

class FSTDynamicRep : public FSTRtnRep {
 public:
  explicit FSTDynamicRep(FSTGeneric const& base);

 protected:
  void _refresh() const override;
};

FSTGeneric FSTDynamic(FSTGeneric const& m);
// Sets the class name ("contacts" or "$contacts"); a null machine removes it.
void FSTDynamicSet(std::string const& name, FSTGeneric const& machine);
// The class's machine, or a null handle when it is not set.
FSTGeneric FSTDynamicGet(std::string const& name);
// Reads the lines after the header; file names the source (may be null).
FSTGeneric FSTLoadDynamic(std::istream& is, char const* header, char const* file);

#endif
