// The three-line warning of a parameter that was clamped.
#include "driver/driver.h"
#include "service/messages.h"

void warn_parameter(const char* label, int value, bool bound_is_lower, int bound,
                    int value_set) {
  tarn_serv_print(kToStdout, drvmsg::kWarnIncorrect, 2, label, value);
  tarn_serv_print(kToStdout, bound_is_lower ? drvmsg::kWarnNotLess : drvmsg::kWarnNotBigger, 1,
                  bound);
  tarn_serv_print(kToStdout, drvmsg::kWarnSetTo, 1, value_set);
}
