# The two commands of the quick start. Both run as root on Debian 12.
.PHONY: test demo build package

test:
	bash scripts/test.sh

demo:
	bash scripts/demo.sh

package:
	bash scripts/package.sh

build:
	bash scripts/install-deps.sh
	cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
	ninja -C build/release
