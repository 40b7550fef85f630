// The hook's flow arrives with the session store and the approval relay;
// until then it must already honour the one promise agents rely on: exit 0.
int main() { return 0; }
