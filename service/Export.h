// Marks what libCliService exports. The library is compiled with hidden symbols.
#pragma once

// On a class, it exports all members and the type information, which exceptions and casts across libraries need.
#define CLI_SERVICE_API __attribute__((visibility("default")))
