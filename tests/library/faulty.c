/* A library that breaks every promise that check_library.sh looks for: the check itself is tested on it. */
#include <string.h>

double average;

double add_to_average(const void *from, size_t size, double value) {
    char copy[64];
    memmove(copy, from, size);
    average = (average + value + copy[0]) / 2;
    return average;
}
