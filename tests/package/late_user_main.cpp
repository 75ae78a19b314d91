// A program whose start-up set holds a library that uses the exported functions from its own
// constructor and destructor; the destructor aborts if it is refused.
extern "C" int LateUserIsUp();

int main()
{
    return LateUserIsUp() != 0 ? 0 : 1;
}
