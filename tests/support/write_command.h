// Table writes as text, so that a test can make the same write in any of its processes:
//
//   add TABLE N ACTION [SEED [PRIORITY]]      modify TABLE N ACTION [SEED]
//   refer TABLE N FIELD ID                    rerefer TABLE N FIELD ID
//   delete TABLE N                            move TABLE N PRIORITY
//   default TABLE ACTION [SEED]               default-refer TABLE FIELD ID
//   clear-default TABLE
//   member-add TABLE ID ACTION [SEED]         member-modify TABLE ID ACTION [SEED]
//   member-delete TABLE ID
//   group-create TABLE ID [MEMBER:STATE]...   group-destroy TABLE ID
//   group-add|group-remove|group-activate|group-deactivate TABLE GROUP MEMBER
//   fallback TABLE MEMBER                     clear-fallback TABLE
//
// N numbers an entry as TableWriter does.
#pragma once

#include <string>
#include <vector>

#include "support/table_writer.h"

namespace jextest {

/// Makes one write; *status is its result. False if `line` is no write.
bool runWrite(const TableWriter& writer, const std::string& line, jx_status_t* status);

/// Makes writes that have to succeed; the first that does not ends the process.
void runWrites(const TableWriter& writer, const std::vector<std::string>& lines);

std::vector<std::string> wordsOf(const std::string& line);

}  // namespace jextest
