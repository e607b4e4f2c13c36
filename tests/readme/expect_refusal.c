/* README.md's program, whose main is called round_trip here, with a string longer than its buffer: it says so with a
 * status of 2. Decoding what the encoding would have been reads past the buffer; a sanitizer then ends the program. */
int round_trip(void);

int main(void) { return round_trip() == 2 ? 0 : 1; }
