// Without libFuzzer: run the harness once per file named on the command
// line, or per file in a named directory (the committed corpus), so the
// seeds and the inputs of past findings run as a plain test.
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static int run_file(const std::string &path)
{
	std::ifstream f(path, std::ios::binary);
	if (!f) {
		fprintf(stderr, "cannot read %s\n", path.c_str());
		return 1;
	}
	std::vector<uint8_t> b((std::istreambuf_iterator<char>(f)),
			       std::istreambuf_iterator<char>());
	/* Exactly as large as the input, as libFuzzer hands it over. */
	uint8_t *copy = new uint8_t[b.size() ? b.size() : 1];
	std::copy(b.begin(), b.end(), copy);
	LLVMFuzzerTestOneInput(copy, b.size());
	delete[] copy;
	return 0;
}

int main(int argc, char **argv)
{
	unsigned int runs = 0;
	int bad = 0;

	for (int i = 1; i < argc; i++) {
		struct stat st;
		if (stat(argv[i], &st)) {
			fprintf(stderr, "no such file: %s\n", argv[i]);
			return 1;
		}
		if (!S_ISDIR(st.st_mode)) {
			bad |= run_file(argv[i]);
			runs++;
			continue;
		}
		std::vector<std::string> names;
		DIR *d = opendir(argv[i]);
		for (struct dirent *e; d && (e = readdir(d));)
			if (e->d_name[0] != '.')
				names.push_back(std::string(argv[i]) + "/" + e->d_name);
		if (d)
			closedir(d);
		std::sort(names.begin(), names.end());
		for (const auto &n : names) {
			bad |= run_file(n);
			runs++;
		}
	}
	printf("replayed %u inputs\n", runs);
	return bad || !runs;
}
