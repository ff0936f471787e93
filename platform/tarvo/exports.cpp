// The shared library is the core archive linked whole (see CMakeLists.txt);
// this file only gives the target a source of its own.
