// A library with one function.
extern "C" [[gnu::visibility("default")]] int TestAnswer()
{
    return 42;
}
