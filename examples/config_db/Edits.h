// What the service is told of the model, so that what people type is checked, spelt and completed as what the loader
// reads from a file: the spelling of values, the keys of entries, and the attributes that follow from a key.
#pragma once

namespace ConfigDb {

// Once, before the first edit.
void registerEdits();

}  // namespace ConfigDb
