/* Drops the progress notes of the embedded library.
 *
 * It prints them on standard output, which belongs to the plug-in's host and may be carrying the
 * very audio. The linker leads the library's printing there to these functions (--wrap). */

int __wrap_puts(const char *text);
int __wrap_putchar(int character);
int __wrap_printf(const char *format, ...);
int __wrap___printf_chk(int flag, const char *format, ...);

int __wrap_puts(const char *text) {
  (void)text;
  return 0;
}

int __wrap_putchar(int character) {
  return character;
}

int __wrap_printf(const char *format, ...) {
  (void)format;
  return 0;
}

int __wrap___printf_chk(int flag, const char *format, ...) {
  (void)flag;
  (void)format;
  return 0;
}
