// A library that is there and has nothing of MAPI.
extern "C" int QuorvaneEmptyLibrary()
{
    return 0;
}
