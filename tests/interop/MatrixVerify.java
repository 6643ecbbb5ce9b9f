// The BouncyCastle column of the interoperability matrix: java MatrixVerify [SIGNATURE CONTENT]... (CONTENT "-"
// when attached). Every signer is verified with SignerInformation.verify against its certificate from the
// container; prints per signature its path, a tab, and "accepted" or "rejected: why".
import java.nio.file.Files;
import java.nio.file.Paths;
import java.security.Security;
import java.util.Collection;

import org.bouncycastle.cert.X509CertificateHolder;
import org.bouncycastle.cms.CMSProcessableByteArray;
import org.bouncycastle.cms.CMSSignedData;
import org.bouncycastle.cms.SignerInformation;
import org.bouncycastle.cms.jcajce.JcaSimpleSignerInfoVerifierBuilder;
import org.bouncycastle.jce.provider.BouncyCastleProvider;
import org.bouncycastle.util.Store;

public final class MatrixVerify {
  private MatrixVerify() {}

  private static String verify(String path, String contentPath) throws Exception {
    byte[] der = Files.readAllBytes(Paths.get(path));
    CMSSignedData signed = contentPath.equals("-")
        ? new CMSSignedData(der)
        : new CMSSignedData(new CMSProcessableByteArray(Files.readAllBytes(Paths.get(contentPath))), der);
    Store<X509CertificateHolder> certificates = signed.getCertificates();
    Collection<SignerInformation> signers = signed.getSignerInfos().getSigners();
    if (signers.isEmpty()) return "rejected: no signers";
    for (SignerInformation signer : signers) {
      @SuppressWarnings("unchecked")
      Collection<X509CertificateHolder> matches = certificates.getMatches(signer.getSID());
      if (matches.size() != 1) return "rejected: signer certificate not in the container";
      X509CertificateHolder certificate = matches.iterator().next();
      if (!signer.verify(new JcaSimpleSignerInfoVerifierBuilder().setProvider("BC").build(certificate))) {
        return "rejected: signature does not verify";
      }
    }
    return "accepted";
  }

  public static void main(String[] args) {
    Security.addProvider(new BouncyCastleProvider());
    for (int i = 0; i + 1 < args.length; i += 2) {
      String result;
      try {
        result = verify(args[i], args[i + 1]);
      } catch (Exception e) {
        result = "rejected: " + e.getClass().getSimpleName() + ": " + e.getMessage();
      }
      System.out.println(args[i] + "\t" + result);
    }
  }
}
