// Helpers shared by the package records: the check that a record is read from
// a JSON object. A package record built from anything else is a read failure,
// so that callers can tell a broken header text from an empty package.
#pragma once

namespace Velmora {

class Deserializer;

// Throws Exception(ReturnInvalidParameter) for `record` unless the current
// value of `deserializer` is a JSON object.
void requirePackageObject(Deserializer& deserializer, char const* record);

} // namespace Velmora
