// The source name that traces and assertions carry: the file's own, unless it says otherwise before its first include
// (several files that make up one source module name that module).
#pragma once

#ifndef KEL_SOURCE_NAME
#define KEL_SOURCE_NAME __FILE__
#endif
