/* Declarations decorated as the GNU C library decorates its own. */
#ifndef SYS_PRINT_H
#define SYS_PRINT_H 1

#include <features.h>

__BEGIN_DECLS

/* Write formatted output to S, at most MAXLEN bytes.  */
extern int snprintf (char *__restrict __s, size_t __maxlen,
		     const char *__restrict __format, ...)
     __THROWNL __attribute__ ((__format__ (__printf__, 3, 4)));

/* Duplicate S, returning an identical malloc'd string.  */
extern char *strdup (const char *__s)
     __THROW __attribute_malloc__ __nonnull ((1));

/* Return the length of S.  */
extern size_t strlen (const char *__s)
     __THROW __attribute_pure__ __nonnull ((1));

/* Look up MSGID in the DOMAINNAME message catalog.  */
extern char *dgettext (const char *__domainname, const char *__msgid)
     __THROW __attribute_format_arg__ (2);

/* Read NBYTES into BUF from FD.  */
extern ssize_t read (int __fd, void *__buf, size_t __nbytes) __wur
    __attr_access ((__write_only__, 2, 3));

/* Open a file and create a new stream for it.  */
extern FILE *fopen (const char *__restrict __filename,
		    const char *__restrict __modes)
  __attribute_malloc__ __attr_dealloc (fclose, 1) __wur;

/* Read formatted input from STREAM.  */
#ifdef __REDIRECT
extern int __REDIRECT (fscanf, (FILE *__restrict __stream,
				const char *__restrict __format, ...),
		       __isoc99_fscanf) __wur;
#else
extern int fscanf (FILE *__restrict __stream,
		   const char *__restrict __format, ...) __wur;
#endif

__END_DECLS

#endif
