// What the maker's kind of compiler finds in its own runtime library: the virtual table of std::type_info, to which the
// description of every thrown and every caught type points. Nothing reads it: which type is which is found by the names
// in the descriptions.
extern "C" const void* const orvaneTypeInfoTable[4] __asm__("??_7type_info@@6B@") = {};
