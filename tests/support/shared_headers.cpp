// Empty: the headers that precede it are what is compiled. See tests/CMakeLists.txt.
