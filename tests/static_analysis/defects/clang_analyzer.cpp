// clang-tidy finds clang-analyzer-cplusplus.NewDelete
int read_after_delete() {
    const int* number = new int(7);
    delete number;
    return *number;
}
