// "KPMContract.Echo": a test object for the contract between late-bound
// callers and automation objects: values in and out, by-reference arguments
// written back, errors with number, source and description, objects and
// collections. The contract tests create it on the simulated machine and,
// through the stand-in COM server, under Wine.
#pragma once

#include "standins/dispatch_base.h"

namespace standins {

inline constexpr const char* kEchoProgId = "KPMContract.Echo";

// Members:
//   Identity(x)          returns x
//   TypeName(x)          the type the object received: Empty, Null, Boolean,
//                        Long, Double, Date, String, Object
//   ArgCount(...)        how many arguments arrived (0 to 9)
//   Concat(...)          the arguments' texts joined in order (1 to 9)
//   Swap(a, b)           exchanges two by-reference arguments
//   Append(s, suffix)    s = s & suffix; returns the new length
//   Increment(n)         n = n + 1
//   Raise(number [, source [, description]])
//                        fails with that error (the runtime's description
//                        when none is given; this object's source when none)
//   Value                a read-write property, Empty at first
//   Items(n)             a collection of the numbers 1 .. n
class Echo : public DispatchBase {
public:
    Echo();

private:
    Variant value_;
};

}  // namespace standins
