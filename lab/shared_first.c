// The dynamic loader of Wine's own program in the emulated Arm system: maps one page that could be shared, gives it
// back, and hands over to the system's dynamic loader.
//
// At the first mapping that could be shared, and Wine makes one early in each start, the emulator throws away all that
// it has translated so far, and translates differently from then on, so that other processes see each access at once.
// Its log shows it (QEMU 7.2, QEMU_LOG=in_asm,strace): of 17,400 pieces that were translated for a "reg query" 2,100
// were there before, of the dynamic loader, the C library and Wine. Whoever makes such a mapping before anything else
// has run loses nothing.
//
// scripts/lib/systems.sh compiles it for Linux on Arm, without a C library, and names it in Wine's program.

#define SYSTEM_LOADER "/lib/ld-linux-aarch64.so.1"

typedef unsigned long Word;

// ELF-64, <elf.h>.
struct Header {
  unsigned char ident[16];
  unsigned short type, machine;
  unsigned version;
  Word entry, segmentsAt, sectionsAt;
  unsigned flags;
  unsigned short size, segmentSize, segmentCount, sectionSize, sectionCount, sectionNames;
};
struct Segment {
  unsigned type, flags;
  Word offset, address, physical, inFile, inMemory, alignment;
};
enum { LOADED = 1, EXECUTABLE = 1, WRITABLE = 2, READABLE = 4, END_OF_VECTOR = 0, LOADER_BASE = 7 };

// Linux on Arm, <asm/unistd.h>, <fcntl.h>, <sys/mman.h>.
enum { OPENAT = 56, CLOSE = 57, READ = 63, EXIT = 93, MUNMAP = 215, MMAP = 222 };
enum { CURRENT_FOLDER = -100, CLOSE_ON_EXEC = 02000000, LARGEST_ERROR = 4095, PAGE = 4096 };
enum { MAY_READ = 1, MAY_WRITE = 2, MAY_EXECUTE = 4, SHARED = 1, PRIVATE = 2, FIXED = 16, ANONYMOUS = 32 };

static Word call(Word number, Word a, Word b, Word c, Word d, Word e, Word f) {
  register Word x8 __asm__("x8") = number;
  register Word x0 __asm__("x0") = a;
  register Word x1 __asm__("x1") = b;
  register Word x2 __asm__("x2") = c;
  register Word x3 __asm__("x3") = d;
  register Word x4 __asm__("x4") = e;
  register Word x5 __asm__("x5") = f;
  __asm__ volatile("svc 0" : "+r"(x0) : "r"(x8), "r"(x1), "r"(x2), "r"(x3), "r"(x4), "r"(x5) : "memory");
  return x0;
}

// What cannot be had ends the program, with the status of a program that cannot be started.
static Word needed(Word result) {
  if (result >= (Word)-LARGEST_ERROR) call(EXIT, 127, 0, 0, 0, 0, 0);
  return result;
}

static Word map(Word at, Word size, Word protection, Word flags, Word file, Word offset) {
  return needed(call(MMAP, at, size, protection, flags, file, offset));
}

static Word protectionOf(const struct Segment* segment) {
  return (segment->flags & READABLE ? MAY_READ : 0) | (segment->flags & WRITABLE ? MAY_WRITE : 0) |
         (segment->flags & EXECUTABLE ? MAY_EXECUTE : 0);
}

static void load(const struct Segment* segment, Word base, Word file) {
  const Word begin = base + segment->address, lead = begin % PAGE, protection = protectionOf(segment);
  const Word fromFile = begin + segment->inFile, end = begin + segment->inMemory;
  map(begin - lead, lead + segment->inFile, protection, PRIVATE | FIXED, file, segment->offset - lead);
  if (end == fromFile) return;
  const Word nextPage = (fromFile + PAGE - 1) / PAGE * PAGE;
  for (volatile char* byte = (char*)fromFile; byte < (char*)nextPage; byte++) *byte = 0;
  if (end > nextPage) map(nextPage, end - nextPage, protection, PRIVATE | FIXED | ANONYMOUS, (Word)-1, 0);
}

// The stack as the kernel made it: the count of words, the words, 0, the environment, 0, pairs of number and value.
// Returns where the system's loader begins, and has told it in these pairs where it lies.
__attribute__((used)) static Word begin(Word* stack) {
  needed(call(MUNMAP, map(0, PAGE, MAY_READ, SHARED | ANONYMOUS, (Word)-1, 0), PAGE, 0, 0, 0, 0));

  union {
    struct Header header;
    char bytes[1024];
  } start;
  const Word file = needed(call(OPENAT, (Word)CURRENT_FOLDER, (Word)SYSTEM_LOADER, CLOSE_ON_EXEC, 0, 0, 0));
  needed(call(READ, file, (Word)&start, sizeof(start), 0, 0, 0));
  const struct Segment* const segments = (const struct Segment*)(start.bytes + start.header.segmentsAt);
  Word size = 0;
  for (int i = 0; i < start.header.segmentCount; i++) {
    const Word end = segments[i].address + segments[i].inMemory;
    if (segments[i].type == LOADED && end > size) size = end;
  }
  const Word base = map(0, size, 0, PRIVATE | ANONYMOUS, (Word)-1, 0);
  for (int i = 0; i < start.header.segmentCount; i++) {
    if (segments[i].type == LOADED) load(&segments[i], base, file);
  }
  needed(call(CLOSE, file, 0, 0, 0, 0, 0));

  Word* pair = stack + 1 + stack[0] + 1;
  while (*pair != 0) pair++;
  for (pair++; *pair != END_OF_VECTOR; pair += 2) {
    if (*pair == LOADER_BASE) pair[1] = base;
  }
  return base + start.header.entry;
}

__asm__(".globl _start\n_start:\n  mov x0, sp\n  bl begin\n  br x0\n");
