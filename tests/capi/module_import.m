// Objective-C imports the C API as a clang module, as Swift would.
@import QuorCustomerServiceC;

int version_is_known(void) { return quor_cs_version()[0] != '\0' && QUOR_CS_OK == 0; }
