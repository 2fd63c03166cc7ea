/* A host written in plain C99: includes only the public header and links the shared library. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vqmath.h>

static int failures = 0;
#define CHECK(cond)                                              \
  do {                                                           \
    if (!(cond)) {                                               \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                \
    }                                                            \
  } while (0)

int main(void) {
  char* msg;
  int params[64];
  int a, b, c, d, e;

  CHECK(VQ_SetSolverType(1) == 1);
  CHECK(VQ_InitializeLibrary() == 0);
  VQ_GetGlobalSparseSolverParams(params);
  CHECK(params[0] == 1 && params[9] == 8 && params[59] == 1);

  VQ_ResolveEror(-84);
  msg = VQ_GetLastErrorMessage();
  CHECK(msg != NULL && strlen(msg) == 61 && msg[41] == '\f');
  free(msg);

  VQ_ResolveWarning(-24);
  msg = VQ_GetLastWarningMessage();
  CHECK(msg != NULL && msg[strlen(msg) - 1] == '\t');
  free(msg);

  VQ_ResetGlobalErrorsAndWarnings();
  CHECK(VQ_GetLastErrorID() == 0 && VQ_GetInstabilityDOF() == -1);

  VQ_GetMathLibVersion(&a, &b, &c, &d, &e);
  CHECK(a == 1 && b == 1 && c == 0 && d == 9 && e == 20170603);

  VQ_SetWorkingDir("/tmp/");
  msg = VQ_GetWorkingDir();
  CHECK(msg != NULL && strcmp(msg, "/tmp/") == 0);
  free(msg);

  VQ_SetSolverType(0);
  VQ_ReleaseLibrary();
  if (failures == 0) printf("C host: all checks passed\n");
  return failures == 0 ? 0 : 1;
}
