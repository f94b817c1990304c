#include "app/cmdline.h"

#include <getopt.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

// Kept to the letter, the other pid file, the open parenthesis and "deamon" included: scripts and
// manuals of the boards quote it.
constexpr char kHelp[] =
    " [ -stlpdvh ] path_to_config_db path_to_temp_db\n"
    "   [ -s ] [ --sysloglevel ] (type=INTEGER, range=0...5, default=4)\n"
    "          Nivel de mensajes enviados al syslog:\n"
    "\t\t0 -> No loguear.\n"
    "\t\t1 -> Mostrar Errores.\n"
    "\t\t2 -> Mostrar hasta avisos.\n"
    "\t\t3 -> Mostrar hasta información.\n"
    "\t\t4 -> Mostrar hasta información detallada.\n"
    "\t\t5 -> Mostrar incluso mensajes de desarrollo.\n"
    "   [ -t ] [ --logtostderr ] (type=FLAG)\n"
    "          Envia las trazas de debugging a stderr ademas de a syslog\n"
    "\n"
    "   [ -l ] [ --stdloglevel ] (type=INTEGER, range=0...127, default=0)\n"
    "          Nivel de mensajes mostrados por la salida estandar (no compatible con modo demonio),\n"
    "\t se trata de un valor (decimal) alcanzado mediante máscaras de bits:\n"
    "\t\t0 -> Ningun mensaje mostrado.Salvo errores por la salida standar error.\n"
    "\t\tbit1 (0x01) a bit 8 (0x0F -> No usados.\n"
    "\t\tbit9 (0x10 o 16) ->  Mostrar mensajes por defecto (generales).\n"
    "\t\tbit10 (0x20 o 32) -> Mostrar mensajes relacionados con las BBDD.\n"
    "\t\tbit11 (0x40 o 64) -> Mostrar mensajes relacionados con la comunicacion zondar.\n"
    "   [ -p ] [ --pidfile ] (type=STRING, default=/tmp/zondar_listener.pid)\n"
    "          Ejemplo de PID, donde x [1..2]. Nombre del fichero que gestiona las multiples instancias del programa.\n"
    "   [ -d ] [ --deamon ] (type=FLAG)\n"
    "          Ejecutar en modo demonio, no muestra nada por la salida estandar.\n"
    "   [ -v ] [ --version ] (type=FLAG)\n"
    "          Mostrar versión del programa y salir.\n"
    "   [ -h ] [ --help ] (type=FLAG)\n"
    "          Mostrar esta ayuda y salir.\n"
    "  <path_to_config_db> (type=string, obligatorio)\n"
    "\t Ruta BBDD config_local.sqlite\n"
    "  <path_to_temp_db> (type=string, obligatorio)\n"
    "\t Ruta BBDD temp_local.sqlite\n"
    "\n";

constexpr char kShortOptions[] = "s:tl:p:dvh";

constexpr std::array<option, 8> kLongOptions = {{
    {"sysloglevel", required_argument, nullptr, 's'},
    {"logtostderr", no_argument, nullptr, 't'},
    {"stdloglevel", required_argument, nullptr, 'l'},
    {"pidfile", required_argument, nullptr, 'p'},
    {"deamon", no_argument, nullptr, 'd'},
    {"version", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
}};

}  // namespace

Cmdline::Cmdline(int argc, char* argv[]) : program_name_(argc > 0 ? argv[0] : "") {
    parse(argc, argv);
}

void Cmdline::usage(std::int32_t status) const {
    if (status == 0)
        std::printf("usage: %s%s", program_name_.c_str(), kHelp);
    else
        std::fprintf(stderr, "Try `%s --help' for more information.\n", program_name_.c_str());
    std::exit(status);
}

void Cmdline::parse(int argc, char* argv[]) {
    optind = 0;
    for (;;) {
        // The C library copies its own index back to optind on every return, so handing it
        // optind for the index of the long option changes nothing.
        const int option = getopt_long(argc, argv, kShortOptions, kLongOptions.data(), &optind);
        if (option == -1)
            break;
        take_option(option, optarg);
    }
    first_positional_ = optind;
}

void Cmdline::take_option(int option, const char* argument) {
    switch (option) {
        case 's':
            syslog_level_ = std::atoi(argument);  // 0 for what is no number
            if (syslog_level_ < 0)
                throw std::string("parameter range error: s must be >= 0");
            if (syslog_level_ > 5)
                throw std::string("parameter range error: s must be <= 5");
            break;
        case 't':
            log_to_stderr_ = true;
            break;
        case 'l':
            stdout_log_level_ = std::atoi(argument);
            if (stdout_log_level_ < 0)
                throw std::string("parameter range error: l must be >= 0");
            if (stdout_log_level_ > 127)
                throw std::string("parameter range error: l must be <= 127");
            break;
        case 'p':
            pidfile_ = argument;
            break;
        case 'd':
            daemon_mode_ = true;
            break;
        case 'v':
            show_version_ = true;
            break;
        case 'h':
            show_help_ = true;
            usage(0);
        default:
            usage(1);
    }
}
