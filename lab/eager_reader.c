// Loaded into the smart-card service of an emulated system. The service looks for a card when it starts and then every
// 400 ms, and a virtual card cannot come before it listens: so each of many hundred starts would wait for the second
// look. Here all that it rests is a twentieth of that.
//
// scripts/lib/systems.sh compiles it for Linux; clock_nanosleep is the C library's.

struct interval {
  long seconds, nanoseconds;
};

extern int clock_nanosleep(int clock, int flags, const struct interval* rest, struct interval* left);

enum { TIMES = 20, REALTIME = 0, BILLION = 1000000000 };

int nanosleep(const struct interval* wanted, struct interval* left) {
  const long seconds = wanted->seconds / TIMES;
  const long nanoseconds = (wanted->seconds % TIMES * BILLION + wanted->nanoseconds) / TIMES;
  const struct interval rest = {seconds, nanoseconds};
  return clock_nanosleep(REALTIME, 0, &rest, left) == 0 ? 0 : -1;
}
