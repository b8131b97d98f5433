// What code for the Microsoft interface asks of that compiler's run-time library, apart from the handler of exceptions.

// The description of every type that is thrown or caught begins with the address of this class's table of virtual
// operations. Types are told apart by their names, and nothing calls through the table. Compiled without descriptions
// of its own, which would refer to the table before it is there.
class type_info final {
public:
    type_info();
    virtual void unused();
};
type_info::type_info() {}
void type_info::unused() {}

extern "C" {

__declspec(dllimport) void RaiseException(unsigned long code, unsigned long flags, unsigned long count,
                                          const unsigned long long* arguments);
[[noreturn]] void abort();
extern const char __ImageBase; // of the file that this is linked into

// An exception of C++, as handlers of that compiler know it.
void _CxxThrowException(void* object, void* description) {
    constexpr unsigned long code = 0xE06D7363;
    constexpr unsigned long notContinuable = 1;
    constexpr unsigned long long version = 0x19930520;
    const auto address = [](const void* pointer) { return reinterpret_cast<unsigned long long>(pointer); };
    const unsigned long long arguments[] = {version, address(object), address(description), address(&__ImageBase)};
    RaiseException(code, notContinuable, sizeof arguments / sizeof *arguments, arguments);
}

void __std_terminate() {
    abort();
}

} // extern "C"
