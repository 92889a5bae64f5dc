/* What string_in_c_test.c offers to its driver: each answers NULL, or the condition that failed. */
#ifndef TESTS_COREFOUNDATION_STRING_IN_C_TEST_H
#define TESTS_COREFOUNDATION_STRING_IN_C_TEST_H

#if defined(__cplusplus)
extern "C" {
#endif

const char* stringsFromC(void);
const char* collectionsFromC(void);
const char* datesFromC(void);
const char* locationsFromC(void);
const char* propertyListsFromC(void);

#if defined(__cplusplus)
}
#endif

#endif
