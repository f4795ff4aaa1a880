// One start of a program in an emulated system that stays up: gives the system's own side (standing_system.py) the
// request with this process's input and outputs, and ends with the status that comes back. A program of its own, so
// that whoever started it has an ordinary process to wait for or to kill; not in Python, which takes longer to start
// than many of the programs do.
//
//   start_there SOCKET SECONDS REQUEST
//
// The status is 124 after SECONDS, and 125 if the system has gone.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

enum { OUT_OF_TIME = 124, NO_SYSTEM = 125, GIVEN = 3 };

static void endForTime(int number) {
  (void)number;
  _exit(OUT_OF_TIME);
}

static int fail(const char* what) {
  perror(what);
  return NO_SYSTEM;
}

int main(int count, char** words) {
  if (count != 4 || strlen(words[1]) >= sizeof(((struct sockaddr_un*)0)->sun_path)) return NO_SYSTEM;
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  strcpy(address.sun_path, words[1]);
  const int connection = socket(AF_UNIX, SOCK_SEQPACKET, 0);
  if (connection < 0 || connect(connection, (struct sockaddr*)&address, sizeof(address)) != 0) return fail(words[1]);

  const int given[GIVEN] = {0, 1, 2};
  _Alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(given))] = {0};
  struct iovec request = {.iov_base = words[3], .iov_len = strlen(words[3])};
  struct msghdr message = {
      .msg_iov = &request, .msg_iovlen = 1, .msg_control = control, .msg_controllen = sizeof(control)};
  struct cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(given));
  memcpy(CMSG_DATA(header), given, sizeof(given));
  if (sendmsg(connection, &message, MSG_NOSIGNAL) < 0) return fail("the request");

  // Their other ends are to notice when the program closes them.
  for (int number = 0; number < GIVEN; ++number) close(number);
  signal(SIGALRM, endForTime);
  alarm((unsigned)atoi(words[2]));
  char answer[16] = {0};
  return recv(connection, answer, sizeof(answer) - 1, 0) > 0 ? atoi(answer) : NO_SYSTEM;
}
