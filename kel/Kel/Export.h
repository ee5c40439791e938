// Marks what a library exports. The libraries are compiled with hidden symbols; what applications and generated code
// use is marked.
#pragma once

// On a class, it exports all members and the type information, which exceptions and casts across libraries need.
#define KEL_API __attribute__((visibility("default")))
