// The header of the report: date, machine, thread count and the plan.
#include <cstdio>
#include <ctime>

#include "driver/driver.h"
#include "service/messages.h"
#include "service/threads.h"
#include "service/timers.h"
#include "src/vos.h"

namespace {

void print_plan_row(const char* label, const int32_t* slots, int ntests) {
  std::printf("%-43s :", label);
  for (int i = 0; i < ntests; ++i) std::printf(" %-5i", slots[i]);
  std::printf("\n");
}

}  // namespace

void print_header(const RunPlan& plan) {
  const std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);
  tarn_serv_print(kToStdout, drvmsg::kDateTime, 1, local != nullptr ? std::asctime(local) : "0");
  tarn_serv_print(kToStdout, drvmsg::kCpuFrequency, 1, tarn_serv_get_cpu_frequency());
  const int cpus = tarn_serv_get_ncpus();
  tarn_serv_print(kToStdout, drvmsg::kNumberOfCpus, 1, cpus);
  tarn_serv_print(kToStdout, drvmsg::kNumberOfCores, 1, cpus * tarn_serv_get_ncorespercpu());
  tarn_serv_print(kToStdout, drvmsg::kNumberOfThreads, 1, omp_get_max_threads());
  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  tarn_serv_print(kToStdout, drvmsg::kParametersAreSet, 0);
  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
  tarn_serv_print(kToStdout, drvmsg::kNumberOfTests, 1, plan.ntests);
  print_plan_row(kLabelSize, plan.sizes, plan.ntests);
  print_plan_row(kLabelLda, plan.ldas, plan.ntests);
  print_plan_row(kLabelTrials, plan.trials, plan.ntests);
  print_plan_row(kLabelAlign, plan.aligns, plan.ntests);
  tarn_serv_print(kToStdout, drvmsg::kNewline, 0);
}
