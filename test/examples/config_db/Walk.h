// What a loaded tree says, by way of the reflective interface.
#pragma once

#include <map>
#include <string>

#include "Kel/Dir.h"

// A directory to load into.
Kel::Dir::Ptr newDir();

// The text of the attribute at the end of a path such as "/network/ports.port/Ethernet0.mtu": a value's text, a
// pointer's full name; of a collection its members by commas, or one of them with ".port[key]". "<none>" when there is
// no such thing.
std::string at(Kel::Dir::Ptr const& dir, std::string const& entity, std::string const& attribute,
               std::string const& key = "");

// Everything below the session roots: the paths of entities, attributes and members, and their texts.
std::map<std::string, std::string> everything(Kel::Dir::Ptr const& dir);
