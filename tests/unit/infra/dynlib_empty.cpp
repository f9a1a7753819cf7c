extern "C" int SomethingElse()
{
    return 0;
}
