// The C interface of tarnwick_workbench from .NET: add this file to a project, and the library beside its program.
using System;
using System.Runtime.InteropServices;
using System.Text;

namespace Tarnwick
{
    /// What a call of the library failed with.
    public sealed class TarnwickException : Exception
    {
        /// 1 argument, 2 chain, 3 data, 4 memory, 5 internal: as the header of the C interface has them.
        public int Code { get; private set; }

        internal TarnwickException(int code, string message) : base(message) { Code = code; }
    }

    /// A chain of filters for records of one length. Different chains may be used by different threads at once.
    public sealed class Chain : IDisposable
    {
        private sealed class Handle : SafeHandle
        {
            public Handle() : base(IntPtr.Zero, true) {}
            public override bool IsInvalid { get { return handle == IntPtr.Zero; } }
            protected override bool ReleaseHandle() { tarnwick_chain_destroy(handle); return true; }
        }

        private const string Library = "tarnwick_workbench";
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        private static extern IntPtr tarnwick_version();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        private static extern int tarnwick_chain_create(byte[] json, byte[] baseFolder, UIntPtr count, out Handle chain);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        private static extern int tarnwick_chain_apply(Handle chain, double[] samples, [In, Out] double[] result, UIntPtr count);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        private static extern int tarnwick_chain_report(Handle chain, [In, Out] byte[] json, UIntPtr capacity, out UIntPtr needed);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        private static extern void tarnwick_chain_destroy(IntPtr chain);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        private static extern IntPtr tarnwick_last_error();

        private readonly Handle chain;

        /// The library's version.
        public static string Version { get { return TextAt(tarnwick_version()); } }

        /// <param name="json">The text of a chain file.</param>
        /// <param name="baseFolder">Where relative names of files start; null: the current folder.</param>
        /// <param name="sampleCount">Samples of each record.</param>
        public Chain(string json, string baseFolder, int sampleCount)
        {
            Check(tarnwick_chain_create(Utf8(json), Utf8(baseFolder), Size(sampleCount), out chain));
        }

        /// <param name="samples">[V] A whole record; it stays as it is.</param>
        /// <returns>[V] The record behind the filters.</returns>
        public double[] Apply(double[] samples)
        {
            if (samples == null)
                throw new ArgumentNullException("samples");
            var result = new double[samples.Length];
            Check(tarnwick_chain_apply(chain, samples, result, Size(samples.Length)));
            return result;
        }

        /// The last record in front of the filters and behind each, as JSON.
        public string Report()
        {
            UIntPtr needed;
            Check(tarnwick_chain_report(chain, null, UIntPtr.Zero, out needed));
            var json = new byte[(int)needed];
            Check(tarnwick_chain_report(chain, json, needed, out needed));
            return Encoding.UTF8.GetString(json, 0, json.Length - 1);
        }

        public void Dispose() { chain.Dispose(); }

        private static UIntPtr Size(int count) { return new UIntPtr((uint)count); }

        private static byte[] Utf8(string text) { return text == null ? null : Encoding.UTF8.GetBytes(text + "\0"); }

        private static string TextAt(IntPtr text)
        {
            var length = 0;
            while (Marshal.ReadByte(text, length) != 0)
                ++length;
            var bytes = new byte[length];
            Marshal.Copy(text, bytes, 0, length);
            return Encoding.UTF8.GetString(bytes);
        }

        private static void Check(int code)
        {
            if (code != 0)
                throw new TarnwickException(code, TextAt(tarnwick_last_error()));
        }
    }
}
