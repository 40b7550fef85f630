#pragma once

#include <string>

namespace pelmora::NumberText {

// The shortest text that reads back to the same double, as a JSON number:
// 1700000000 (no ".0"), 0.5, 1.5e+300. Not finite values give "0".
std::string shortest(double value);
// The language's default text form, which always shows a fraction or an
// exponent: 1700000000.0, 0.5, 1e-05, 1.2345678901234568e+17.
std::string defaultForm(double value);

} // namespace pelmora::NumberText
