/* The heap a loaded T2S model holds: what the runtime keeps of it after loading, the file's
   bytes let go. Prints the bytes, for realistic_model_bench.sh. Usage: t2sfst_model_memory MODEL */
#include <malloc.h>
#include <stdio.h>

#include "t2s_runtime.h"

static size_t heap_in_use(void) {
  struct mallinfo2 const info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: t2sfst_model_memory MODEL\n");
    return 2;
  }
  size_t const before = heap_in_use();
  char error[256] = "";
  t2s_model* model = t2s_model_load(argv[1], error, sizeof error);
  if (!model) {
    fprintf(stderr, "%s: %s\n", argv[1], error);
    return 1;
  }
  printf("%zu\n", heap_in_use() - before);
  t2s_model_free(model);
  return 0;
}
