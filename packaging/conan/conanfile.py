"""Builds the sources that it stands in: conan create packaging/conan --build=missing"""

import os

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy
from conan.tools.gnu import PkgConfigDeps


class KvPim(ConanFile):
    name = "kvpim"
    version = "1.0.0"
    description = "Client library for a real-time messaging service"
    license = "MIT"
    settings = "os", "compiler", "build_type", "arch"
    options = {"shared": [True, False], "c": [True, False], "testkit": [True, False]}
    default_options = {"shared": False, "c": False, "testkit": False}

    def validate(self):
        check_min_cppstd(self, 20)

    def requirements(self):
        # Boost's and OpenSSL's headers are included by the library's own.
        self.requires("boost/[>=1.81 <2]", transitive_headers=True)
        self.requires("openssl/[>=3 <4]", transitive_headers=True)
        self.requires("libsecret/[>=0.20]")
        self.requires("re2/[>=20220601]")
        self.requires("zlib/[>=1.2.11 <2]")

    def export_sources(self):
        root = os.path.join(self.recipe_folder, "..", "..")
        for pattern in ("CMakeLists.txt", "LICENSE", "cmake/*", "Binding/*", "Classes/*", "Net/*", "Platform/*", "SocketIO/*",
                        "TestKit/*"):
            copy(self, pattern, root, self.export_sources_folder)

    def layout(self):
        cmake_layout(self)

    def generate(self):
        CMakeDeps(self).generate()
        PkgConfigDeps(self).generate()  # by which re2 and libsecret are looked for
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables.update({
            "KVPIM_BUILD_BINDING": bool(self.options.c),
            "KVPIM_BUILD_TESTKIT": bool(self.options.testkit),
            "KVPIM_BUILD_TOOLS": False,
            "KVPIM_BUILD_EXAMPLES": False,
            "KVPIM_BUILD_TESTS": False,
        })
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        for component in ("libraries", "development"):
            CMake(self).install(component=component)
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))

    def package_info(self):
        # What is found is the project's own KvPimConfig.cmake, with its components, as with any other installation.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "KvPim")]
