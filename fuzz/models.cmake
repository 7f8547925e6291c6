# gazeeval and gazetrain: a corpus recording with its labels, as both tools check it.
velto_add_fuzzer(fuzz_eval_corpus fuzz_eval_corpus.cpp LIBS velto_gazeeval)
