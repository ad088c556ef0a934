"""Builds the sources that contain this recipe:

    conan create packaging/conan

Not run yet: Conan needs the internet.
"""
import os
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load
from conan.tools.gnu import PkgConfigDeps


class Veltrano(ConanFile):
    name = "veltrano"
    description = "An event-analytics client"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False]}
    default_options = {"shared": True}
    requires = ("expat/[>=2.5 <3]", "libcurl/[>=7.83 <9]", "openssl/[>=3 <4]",
                "rapidjson/cci.20230929", "utf8proc/[>=2.7 <3]")
    tool_requires = "pkgconf/[>=2.0 <3]"

    @property
    def _root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        project = load(self, os.path.join(self._root, "CMakeLists.txt"))
        self.version = re.search(r"project\(Veltrano VERSION ([\d.]+)", project)[1]

    def export_sources(self):
        copy(self, "*", self._root, self.export_sources_folder, excludes=("build*", ".git*"))

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["VELTRANO_DEVELOPER"] = False
        toolchain.generate()
        PkgConfigDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        # The licence is the owner's to choose.
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))

    def package_info(self):
        self.cpp_info.libs = ["veltrano"]
        self.cpp_info.set_property("cmake_file_name", "Veltrano")
        self.cpp_info.set_property("cmake_target_name", "Veltrano::veltrano")
        self.cpp_info.set_property("pkg_config_name", "veltrano")
        if not self.options.shared:
            self.cpp_info.system_libs = ["dl", "m", "pthread"]
            self.cpp_info.sharedlinkflags = self.cpp_info.exelinkflags = [
                "-Wl,-z,nodelete", "-Wl,--exclude-libs,libveltrano.a"]
