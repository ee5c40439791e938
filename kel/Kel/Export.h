// Marks what a library exports. The libraries are compiled with hidden symbols, except for what is marked: what
// applications and generated code use.
#pragma once

// On a class, it exports all members and the type information, which exceptions and casts across libraries need.
#define KEL_API __attribute__((visibility("default")))
