// The numbered message table. A catalogue (tarn_msg.cat) may translate any
// row; this table is its fallback and the source of its contents. Ids stay
// fixed: the gaps belong to solver families this system does not contain.
#include "service/message_table.h"

#include <array>

namespace {

// Class words of the rows. Kept for the layout of the record only.
constexpr std::int32_t kPlain = 0;
constexpr std::int32_t kError = 1;
constexpr std::int32_t kWarning = 2;
constexpr std::int32_t kInfo = 4;

struct MessageRow {
    int id;
    std::int32_t type;
    const char* text;
};

constexpr MessageRow kRows[] = {
    {0, kPlain, "\n"},
    {1, kError, "Vexan TARN FATAL ERROR: Cannot load %s."},
    {6, kError, "Vexan TARN ERROR: Parameter %d was incorrect on entry to %s."},
    {7, kError, "Vexan TARN INTERNAL ERROR: Condition %d detected in function %s."},
    {8, kError, "Vexan TARN INTERNAL ERROR: Insufficient workspace available in function %s."},
    {9, kError, "Vexan TARN ERROR: Incompatible optional parameters on entry to %s."},
    {760, kError, "Vexan TARN FATAL ERROR: memory allocation error."},
    // The benchmark's own rows.
    {1057, kError,
     "This binary version of the SMP LINPACK benchmark is optimized for and runs on only genuine Vexan "
     "processors"},
    {1058, kPlain, "%s"},
    {1059, kInfo, "Parameters are set to:"},
    {1060, kInfo, "Number of tests: %i"},
    {1061, kError, "Cannot run %s - not enough memory"},
    {1062, kInfo, "Maximum memory requested that can be used=%llu, at the size=%u"},
    {1063, kError, "Internal error in %s: memory leak"},
    {1064, kInfo, "=================== Timing linear equation system solver ==================="},
    {1066, kError, "Error: info returned=%i"},
    {1068, kInfo, "Performance Summary (GFlops)"},
    {1069, kInfo, "Size   LDA    Align.  Average  Maximal"},
    {1070, kPlain, "%-6i %-6i %-3i     %-8.4f %-8.4f"},
    {1071, kInfo, "End of tests"},
    {1072, kInfo, "Input data or print help ? Type [data]/help :"},
    {1073, kError, "Could not open file %s"},
    {1074, kInfo, "Current date/time: %s"},
    {1075, kInfo, "CPU frequency: %8.3f GHz"},
    {1076, kInfo, "Number of CPUs: %i"},
    {1077, kInfo, "Number of threads: %i"},
    {1078, kWarning, "Warning: incorrect parameter %s (%i),"},
    {1079, kWarning, "must be not less than (%i),"},
    {1080, kWarning, "set to default value (%i)."},
    {1081, kWarning, "must be not bigger than (%i),"},
    {1082, kError, "Could not open file %s, aborted."},
    {1089, kError, "Vexan TARN INTERNAL ERROR: Not enough work memory in function %s"},
    {1090, kInfo, "Number of cores: %i"},
    // Reproducibility and processor checks.
    {1207, kInfo, "Conditional numerical reproducibility mode is turned ON"},
    {1208, kInfo, "Conditional numerical reproducibility mode is turned OFF"},
    {1209, kWarning,
     "Vexan TARN WARNING: incorrect conditional numerical reproducibility mode, TARN_CBWR_AUTO is set"},
    {1210, kError,
     "Vexan TARN FATAL ERROR: This system does not meet the minimum requirements for use of the Vexan(R) "
     "Tarn Library."},
    {1211, kError,
     "The processor must support the Vexan(R) Streaming SIMD 2 Extensions (Vexan(R) SSE2) instructions."},
    {1212, kError, "Vexan TARN INTERNAL ERROR: Issue accessing coprocessor %s."},
    {1213, kError, "Vexan TARN ERROR: CPU %d is not supported."},
    // The benchmark's verdict and row heads.
    {1238, kInfo, "Residual checks PASSED"},
    {1239, kError, "Residual checks FAILED"},
    {1240, kPlain, "%-6i %-6i %-3i    %-10.3f %-8.4f %-10e %-10e   pass"},
    {1241, kPlain, "%-6i %-6i %-3i    %-10.3f %-8.4f %-10e %-10e   FAIL"},
    {1242, kInfo, "Size   LDA    Align. Time(s)    GFlops   Residual     Residual(norm) Check"},
};

// Every id in range, each given once, in rising order.
consteval bool rows_are_valid() {
    int previous = -1;
    for (const MessageRow& row : kRows) {
        if (row.id <= previous || row.id >= kTarnMsgCount) return false;
        previous = row.id;
    }
    return true;
}
static_assert(rows_are_valid(), "message rows must have distinct ids in rising order within the table");

consteval std::array<tarn_msg_record, kTarnMsgCount> build_table() {
    std::array<tarn_msg_record, kTarnMsgCount> table{};
    for (int id = 0; id < kTarnMsgCount; ++id)
        table[id] = {"", id + 1 < kTarnMsgCount ? id + 1 : 0, kPlain};
    for (const MessageRow& row : kRows) {
        table[row.id].text = row.text;
        table[row.id].type = row.type;
    }
    return table;
}

}  // namespace

constinit const std::array<tarn_msg_record, kTarnMsgCount> tarn_msg_table = build_table();
