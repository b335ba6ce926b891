#include "platform/write_all.h"
#include "QORFortranRT.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

extern "C" void for_stop_core(const char *text, int length, long long /*flags*/) {
  // Standard output is flushed by exit(); the message goes straight to descriptor 2 so it
  // is never lost in a buffer.
  std::fflush(stdout);
  if (text != nullptr && length > 0) qor::write_all(2, text, static_cast<size_t>(length));
  qor::write_all(2, "\n", 1);
  std::exit(1);
}

namespace {

void append_item(for_io_block *io, const for_item_desc *desc, const void *item) {
  const int room = static_cast<int>(sizeof io->text) - io->length;
  if (desc == nullptr || item == nullptr || room <= 0) return;
  char *end = io->text + io->length;
  if (desc->type == FOR_ITEM_TEXT) {
    const int n = desc->length < room ? (desc->length > 0 ? desc->length : 0) : room;
    std::memcpy(end, item, static_cast<size_t>(n));
    io->length += n;
  } else if (desc->type == FOR_ITEM_INT4) {
    int32_t v;
    std::memcpy(&v, item, sizeof v);
    char field[16];
    const int n = std::snprintf(field, sizeof field, "%12d", static_cast<int>(v));
    const int take = n < room ? n : room;
    std::memcpy(end, field, static_cast<size_t>(take));
    io->length += take;
  }
}

}  // namespace

extern "C" void for_write_seq_lis(for_io_block *io, int unit, long long /*flags*/,
                                  const for_item_desc *desc, const void *item) {
  if (io == nullptr) return;
  io->unit = unit;
  io->text[0] = ' ';
  io->length = 1;
  append_item(io, desc, item);
}

extern "C" void for_write_seq_lis_xmit(for_io_block *io, const for_item_desc *desc,
                                       const void *item) {
  if (io == nullptr) return;
  append_item(io, desc, item);
  // The line goes out after whatever stdio still holds, and whole.
  std::fflush(stdout);
  const int last = static_cast<int>(sizeof io->text) - 1;
  const int n = io->length < last ? io->length : last;
  io->text[n] = '\n';
  qor::write_all(1, io->text, static_cast<size_t>(n) + 1);
  io->length = 0;
}
