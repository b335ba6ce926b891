// Internal interface of the message-catalog reader (format: catalogs/README.md).
#pragma once

#include <map>
#include <string>
#include <vector>

namespace qor::nls {

struct Message {
  std::string request;
  std::string diagnostic;
  std::string advice;
};

using Catalog = std::map<std::string, Message>;

// Parses the text of a catalog file. Lines that cannot be read are skipped.
Catalog parse(const std::string &text);

// The folders searched for catalogs, in order.
std::vector<std::string> search_folders();

// The file of catalog `name` (e.g. "QORKytaniError"), or "" when none is found.
std::string find_catalog(const char *name);

// Looks `id` up in catalog `name`. False when the catalog or the message is missing. Each
// file is read and parsed once per process, and again only after it changes.
bool lookup(const char *name, const char *id, Message &out);

// How many times lookup has read and parsed a catalog file in this process (for the tests).
unsigned long parse_count();

// Replaces /p1 ... /p25 in `text` by params[0] ... params[24]; missing ones by "".
std::string fill(const std::string &text, const std::vector<std::string> &params);

}  // namespace qor::nls
