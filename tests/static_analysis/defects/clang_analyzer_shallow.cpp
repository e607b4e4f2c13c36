// clang-tidy finds clang-analyzer-core.NullDereference
int read_null(const int* number) {
    if (number == nullptr) return *number;
    return 0;
}
