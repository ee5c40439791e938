// What libkel exports. The library is built with hidden symbols; what applications and generated code use is marked.
#pragma once

// On a class it exports all members and the type's identity, by which exceptions are caught and casts are made across
// libraries; on a class template only matters where instances of one type meet across libraries.
#define KEL_API __attribute__((visibility("default")))
