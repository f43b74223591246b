// Long argument lists for variadic calls.
#pragma once

#define TIMES_10(arg) arg, arg, arg, arg, arg, arg, arg, arg, arg, arg
#define TIMES_100(arg) TIMES_10(TIMES_10(arg))
#define TIMES_1000(arg) TIMES_10(TIMES_100(arg))
#define TIMES_50(arg) TIMES_10(arg), TIMES_10(arg), TIMES_10(arg), TIMES_10(arg), TIMES_10(arg)
#define TIMES_250(arg) TIMES_100(arg), TIMES_100(arg), TIMES_50(arg)
#define TIMES_8000(arg)                                                                            \
  TIMES_1000(arg), TIMES_1000(arg), TIMES_1000(arg), TIMES_1000(arg), TIMES_1000(arg),             \
      TIMES_1000(arg), TIMES_1000(arg), TIMES_1000(arg)
