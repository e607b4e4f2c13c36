// cppcheck finds arrayIndexOutOfBounds
int behind_the_end() {
    const int numbers[3] = {1, 2, 3};
    int sum = 0;
    for (int i = 0; i <= 3; ++i) sum += numbers[i];
    return sum;
}
