// The numbered message table behind tarn_serv_print; private to the message
// module and its tests.
#pragma once

#include <array>
#include <cstdint>

#include "service/messages.h"

// One row: the default text (a printf format), the id plus one (0 in the
// last row), and a class word that nothing reads.
struct tarn_msg_record {
    const char* text;
    std::int32_t next;
    std::int32_t type;
};
// Three 32-bit words on the target.
static_assert(sizeof(void*) != 4 || sizeof(tarn_msg_record) == 12);

// Rows 0 to kTarnMsgCount - 1; rows of solver families this system does not
// contain hold an empty text.
extern const std::array<tarn_msg_record, kTarnMsgCount> tarn_msg_table;
