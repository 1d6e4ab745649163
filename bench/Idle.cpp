// Links OpenSSL and the standard library and does nothing: the least that a program like the tool can cost.

int main() {
    return 0;
}
