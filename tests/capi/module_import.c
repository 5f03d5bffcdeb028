/* C imports the C API as a clang module and calls it. */
#pragma clang module import QuorCustomerServiceC
#include <stdio.h>
#include <string.h>

int main(void) {
  quor_cs_status status;
  memset(&status, 0, sizeof status);
  status.size = sizeof status;
  if (quor_cs_service_status(NULL, &status) != QUOR_CS_ERROR_ARGUMENT) return 1;
  printf("imported QuorCustomerServiceC %s\n", quor_cs_version());
  return quor_cs_version()[0] != 0 ? 0 : 1;
}
