/* A message of each of two libraries out and back in. */
#include <people.h>
#include <people_types.h>
#include <route.h>
#include <routes_types.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void* from_heap(uint64_t size, void* context) {
    (void)context;
    return malloc(size != 0 ? (size_t)size : 1);
}
static void to_heap(void* block, void* context) {
    (void)context;
    free(block);
}

int main(void) {
    char name[] = "Ada";
    int32_t turns[] = {-1, 90};
    uint8_t bytes[64];
    uint64_t length;
    people_Person person, person_read;
    routes_Route route, route_read;

    memset(&person, 0, sizeof person);
    person.name = name;
    person.born.year = 1815;
    person.born.month = 12;
    person.born.day = 10;
    VESK_MARK(&person, PEOPLE_PERSON_NAME);
    VESK_MARK(&person.born, PEOPLE_DATE_YEAR);
    VESK_MARK(&person.born, PEOPLE_DATE_MONTH);
    VESK_MARK(&person.born, PEOPLE_DATE_DAY);
    length = people_Person_encode_ext(&person, bytes, sizeof bytes, NULL, NULL, 0);
    if (people_Person_decode_ext(&person_read, bytes, length, from_heap, NULL, 0) != VESK_OK) return 1;

    memset(&route, 0, sizeof route);
    route.turns = turns;
    route.turns_count = 2;
    VESK_MARK(&route, ROUTES_ROUTE_TURNS);
    length = routes_Route_encode_ext(&route, bytes, sizeof bytes, NULL, NULL, 0);
    if (routes_Route_decode_ext(&route_read, bytes, length, from_heap, NULL, 0) != VESK_OK) return 1;

    if (people_type_named("people_Date") == NULL || routes_type_named("point_Point") == NULL) return 2;
    if (VESK_HAS(&person_read, PEOPLE_PERSON_NOTHING)) return 3;
    printf("%s %d-%u-%u by %u routes\n", person_read.name, (int)person_read.born.year, (unsigned)person_read.born.month,
           (unsigned)person_read.born.day, (unsigned)route_read.turns_count);
    people_Person_free_ext(&person_read, to_heap, NULL, 0);
    routes_Route_free_ext(&route_read, to_heap, NULL, 0);
    return 0;
}
